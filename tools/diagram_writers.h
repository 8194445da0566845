// The formats of a diagram. Texts of the record are escaped for each of them.
//
// Threads: any. Errors: the state of the stream.
#pragma once

#include <ostream>

#include "tools/diagram_model.h"
#include "tools/terminal.h"

namespace tools {

void WriteText(const Diagram& diagram, const Terminal& terminal, std::ostream& out);
void WriteMermaid(const Diagram& diagram, std::ostream& out);
void WriteSvg(const Diagram& diagram, std::ostream& out);

// A page that shows the diagram in a browser, without any other file. `title` may be any text.
void WritePage(const Diagram& diagram, const std::string& title, std::ostream& out);

}  // namespace tools
