// An owned sequence of bytes, its view for C callers, and its Base64 text.
//
// Threads: a plain value, no locking; const operations may run side by side.
// Errors:  allocation failures propagate. Invalid Base64 gives an empty buffer, without a log
//          line, as empty text does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "forge/export.h"
#include "forge/forge_capi.h"

namespace forge {

class FORGE_EXPORT Buffer {
 public:
  Buffer() = default;
  explicit Buffer(const std::vector<uint8_t>& bytes);
  explicit Buffer(std::vector<uint8_t>&& bytes);
  Buffer(const uint8_t* data, size_t size);  // A copy; empty when data is null.

  void WriteByte(uint8_t byte);
  void WriteBytes(const uint8_t* data, size_t size);  // Nothing when data is null.

  // Pads with zero bytes up to the next multiple of `alignment`, counted from the first byte.
  void WriteAlignment(uint8_t alignment);

  void Reserve(size_t size);
  size_t GetCapacity() const;  // What it holds without moving its bytes.

  // The first byte; null when the buffer is empty, whatever is reserved.
  uint8_t* GetData();
  const uint8_t* GetData() const;
  size_t GetSize() const;

  // Hands the bytes out and leaves the buffer empty; null when it is empty already.
  std::unique_ptr<std::vector<uint8_t>> Extract();

  // Describes the bytes in a view of `size` declared bytes, all of which are cleared first. The
  // view points into this buffer and is good as long as that lives unchanged. A null view is
  // FORGE_RESULT_INVALID_ARGUMENT and one error line. The size field is stored always.
  ForgeResult ToCAPI(ForgeBufferView* view, uint32_t size) const;

  // A copy of what the view shows; a null view is no data, silently.
  static Buffer FromCAPI(ForgeBufferView* view);

  // Empty, with an error line, from 805,306,366 bytes on.
  std::string ToBase64() const;

  // Strict: length a multiple of four, alphabet characters only, padding at the end only, unused
  // bits zero. Anything else gives an empty buffer.
  static Buffer FromBase64(const std::string& text);

  friend bool operator==(const Buffer& a, const Buffer& b) {
    return &a == &b || a.bytes_ == b.bytes_;
  }
  friend bool operator!=(const Buffer& a, const Buffer& b) { return !(a == b); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace forge
