// The files of `tavo new`: tools/templates, compiled in.
//
// In names and texts "sample" stands for the project's name, "Sample" for it as a type's name, and
// PACKAGE, within quotes of JSON, for where the CMake package is.
#pragma once

namespace tools {

struct ProjectTemplate {
  const char* kind;  // plugin, task or app.
  const char* file;
  const char* text;
};

extern const ProjectTemplate kProjectTemplates[];  // The last one is of nulls.

}  // namespace tools
