// The page that shows a diagram in a browser: tools/diagram_page.html, compiled in.
#pragma once

namespace tools {

extern const char kDiagramPage[];  // The word THE_MODEL stands where the diagram goes.

}  // namespace tools
