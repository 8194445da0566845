// A look at bytes from another process before they are decoded.
//
// The decoder believes what it reads: a few bytes can declare gigabytes, and nest as deep as they
// are long. This pass goes through them as the decoder would, but neither allocates nor recurses.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>

#include "forge/export.h"

namespace cw {

constexpr int kDeepestNesting = 1024;                       // Of lists and maps.
constexpr uint64_t kMostValues = 524288;                    // A byte each, but 60 to 80 decoded.
constexpr uint64_t kMostMissingElements = 131072;           // Declared, but not there;
constexpr uint64_t kMostMissingBytes = uint64_t{64} << 20;  // of texts and typed lists likewise.

// Why the bytes of one value are not to be decoded; null when they may be.
FORGE_EXPORT const char* FindInadmissible(const uint8_t* data, size_t size);

}  // namespace cw
