// Marks what plug-ins may use of the shared library; everything else is hidden.
#pragma once

#define FORGE_EXPORT __attribute__((visibility("default")))
