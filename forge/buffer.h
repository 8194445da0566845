// An owned sequence of bytes, its view for C callers, and its Base64 text.
//
//   forge::Buffer buffer(data, size);
//   const std::string text = buffer.ToBase64();
//   const auto copy = forge::Buffer::FromBase64(text);
//
// Threads:   a plain value, no locking; const operations may run concurrently.
// Ownership: the buffer owns its bytes. A pointer or a view into it is valid until the buffer is
//            changed or destroyed.
// Errors:    allocation failures propagate. Invalid Base64 gives an empty buffer without a log
//            line, as empty text does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "forge/export.h"
#include "forge/forge_capi.h"

namespace forge {

// A growing sequence of bytes.
class FORGE_EXPORT Buffer {
 public:
  Buffer() = default;
  explicit Buffer(const std::vector<uint8_t>& bytes);
  explicit Buffer(std::vector<uint8_t>&& bytes);
  Buffer(const uint8_t* data, size_t size);  // Copies the bytes; empty when data is null.

  // Append one byte, or `size` bytes. Null data appends nothing.
  void WriteByte(uint8_t byte);
  void WriteBytes(const uint8_t* data, size_t size);

  // Pads with zero bytes up to the next multiple of `alignment`, counted from the first byte. The
  // alignment 0 pads nothing.
  void WriteAlignment(uint8_t alignment);

  // Makes room for `size` bytes in all, so that writing up to there does not move the bytes.
  void Reserve(size_t size);
  size_t GetCapacity() const;

  // The first byte, or null when the buffer is empty, whatever is reserved.
  uint8_t* GetData();
  const uint8_t* GetData() const;
  size_t GetSize() const;

  // Moves the bytes out and leaves the buffer empty. Null when it is empty already.
  std::unique_ptr<std::vector<uint8_t>> Extract();

  // Describes the bytes in a view of `size` declared bytes, all of which are cleared first. The
  // size field is always stored, also when `size` does not cover it. A null view is
  // FORGE_RESULT_INVALID_ARGUMENT and one error line.
  ForgeResult ToCAPI(ForgeBufferView* view, uint32_t size) const;

  // Copies the bytes that the view describes, as far as its declared size covers its fields. A null
  // view gives an empty buffer, without a log line.
  static Buffer FromCAPI(ForgeBufferView* view);

  // Encodes the bytes. A buffer of 805,306,366 bytes or more gives the empty text and an error
  // line.
  std::string ToBase64() const;

  // Decodes a text strictly: its length is a multiple of four, it has characters of the standard
  // alphabet only and padding at its end only, and unused bits are zero. Any other text gives
  // an empty buffer.
  static Buffer FromBase64(const std::string& text);

  friend bool operator==(const Buffer& a, const Buffer& b) {
    return &a == &b || a.bytes_ == b.bytes_;
  }
  friend bool operator!=(const Buffer& a, const Buffer& b) { return !(a == b); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace forge
