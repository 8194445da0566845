// FORGE_EXPORT marks the classes and functions of the shared library that plug-ins may use. The
// library is built with hidden visibility, so all other symbols stay inside.
#pragma once

#define FORGE_EXPORT __attribute__((visibility("default")))
