// A check of bytes from another process before they are decoded, and of a value before it is sent.
//
//   if (const char* fault = cw::FindInadmissible(data, size)) return Refuse(fault);
//   cw::EncodableValue value = cw::EncodableValue::Deserialize(data, size);
//
// The decoder trusts its input: a few bytes can declare gigabytes, and nest as deep as they are
// long. The check reads the bytes in the order of the decoder, but it neither allocates nor
// recurses. It needs about 8 KiB of stack.
//
// Threads: any.
// Errors:  the result is null, or a text that names the exceeded limit. The text is a literal,
//          which is never freed. The check of bytes does not throw; the check of a value allocates
//          for trees of more than 16 levels and may throw std::bad_alloc then.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cw/encodable_value.h"
#include "forge/export.h"

namespace cw {

constexpr int kDeepestNesting = 1024;  // Lists and maps that lie in each other.

// Values of a message: keys, elements, lists and maps count one each. A value takes one byte at
// least when it is encoded, and up to 100 bytes of memory when it is decoded.
constexpr uint64_t kMaxValues = 4194304;

// What may be declared without being there: elements of lists and maps (a map's entry counts as
// two), and bytes of texts and typed lists that do not fit into the rest of the data.
constexpr uint64_t kMaxMissingElements = 131072;
constexpr uint64_t kMaxMissingBytes = uint64_t{64} << 20;

// Returns why the bytes of one value must not be decoded, or null when they may be. Null data and
// empty data are admissible. Bytes after the first value are not looked at.
FORGE_EXPORT const char* FindInadmissible(const uint8_t* data, size_t size);

// The part of a message around a value: the number of lists and maps that the value lies in, and
// the number of all other values of the message.
struct Surroundings {
  size_t levels = 0;
  uint64_t values = 0;
};

// Returns why a peer that uses the check above would refuse a message with this value, or null when
// the peer would accept it. An empty list of numbers may shift what a decoder reads behind it
// (docs/wire-format.md). For such a value `*needs_bytes` becomes true, and only the check of the
// encoded message is exact. Otherwise `*needs_bytes` is left as it was. It must not be null.
FORGE_EXPORT const char* FindInadmissible(const EncodableValue& value, Surroundings around,
                                          bool* needs_bytes);

}  // namespace cw
