// A check of bytes from another process before they are decoded, and of a value before it is sent.
//
// The decoder believes what it reads: a few bytes can declare gigabytes, and nest as deep as they
// are long. The check goes through them as the decoder would, but neither allocates nor recurses.
//
// Threads: any. Errors: the result is null, or a text that tells which limit is exceeded.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cw/encodable_value.h"
#include "forge/export.h"

namespace cw {

constexpr int kDeepestNesting = 1024;                       // Of lists and maps.
constexpr uint64_t kMostValues = 4194304;                   // A byte each; up to 100 decoded.
constexpr uint64_t kMostMissingElements = 131072;           // Declared, but not there;
constexpr uint64_t kMostMissingBytes = uint64_t{64} << 20;  // of texts and typed lists likewise.

// Why the bytes of one value must not be decoded; null when they may be.
FORGE_EXPORT const char* FindInadmissible(const uint8_t* data, size_t size);

// The part of a message around a value: the lists and maps that it lies in, and all other values.
struct Surroundings {
  size_t levels = 0;
  uint64_t values = 0;
};

// Why a peer that uses the check above would refuse a message with this value; null when it would
// not.
FORGE_EXPORT const char* FindInadmissible(const EncodableValue& value, Surroundings around);

}  // namespace cw
