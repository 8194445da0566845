// Where the codec writes bytes to and reads them from.
//
// Threads: one stream, one thread.
// Errors:  writing propagates allocation failures. A read beyond the end writes one line to
//          standard error, gives zeros and does not advance.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "forge/buffer.h"
#include "forge/export.h"

namespace cw {

// Virtual operations grow only at the end.
class FORGE_EXPORT ByteStreamWriter {
 public:
  virtual ~ByteStreamWriter();

  virtual void WriteByte(uint8_t byte) = 0;
  virtual void WriteBytes(const uint8_t* data, size_t size) = 0;

  // Zero bytes up to the next multiple of `alignment`, counted from the first byte of all.
  virtual void WriteAlignment(uint8_t alignment) = 0;
};

// Virtual operations grow only at the end.
class FORGE_EXPORT ByteStreamReader {
 public:
  virtual ~ByteStreamReader();

  virtual uint8_t ReadByte() = 0;

  // All of the `size` bytes, or none: `dest` is left as it was when they are not there.
  virtual void ReadBytes(uint8_t* dest, size_t size) = 0;

  // Skips to the next multiple of `alignment`, counted from the first byte of all; maybe beyond
  // the end.
  virtual void ReadAlignment(uint8_t alignment) = 0;
};

// Appends to a buffer, which must outlive it.
class FORGE_EXPORT ByteBufferStreamWriter final : public ByteStreamWriter {
 public:
  explicit ByteBufferStreamWriter(forge::Buffer* buffer) : buffer_(buffer) {}

  void WriteByte(uint8_t byte) override;
  void WriteBytes(const uint8_t* data, size_t size) override;
  void WriteAlignment(uint8_t alignment) override;

  forge::Buffer* GetBuffer() const { return buffer_; }

 private:
  forge::Buffer* buffer_;
};

// Reads a range of bytes, which must outlive it. Null data is an empty range.
class FORGE_EXPORT ByteBufferStreamReader final : public ByteStreamReader {
 public:
  ByteBufferStreamReader(const uint8_t* data, size_t size) : data_(data), size_(data ? size : 0) {}
  ~ByteBufferStreamReader() override;

  uint8_t ReadByte() override;
  void ReadBytes(uint8_t* dest, size_t size) override;
  void ReadAlignment(uint8_t alignment) override;

  // Like ReadBytes, without the copy: the bytes where they lie, or null when they are not there.
  const uint8_t* TakeBytes(uint64_t size);

  // The same without reading them, and without the line.
  const uint8_t* PeekBytes(uint64_t size) const;

  // How many bytes there are still to read.
  size_t GetRemaining() const {
    return location_ < size_ ? static_cast<size_t>(size_ - location_) : 0;
  }

 private:
  static void ReportInvalidRead();

  const uint8_t* data_;
  size_t size_;
  uint64_t location_ = 0;  // 64 bits: it goes beyond the end and must not wrap.
};

// ------------------------------------------------------------------------------------------------

inline const uint8_t* ByteBufferStreamReader::PeekBytes(uint64_t size) const {
  static constexpr uint8_t kNothing = 0;  // Where the no bytes of an empty range lie.
  if (size > size_ || location_ > size_ - size) return nullptr;
  return data_ ? data_ + location_ : &kNothing;
}

inline const uint8_t* ByteBufferStreamReader::TakeBytes(uint64_t size) {
  const uint8_t* bytes = PeekBytes(size);
  if (bytes) {
    location_ += size;
  } else {
    ReportInvalidRead();
  }
  return bytes;
}

inline uint8_t ByteBufferStreamReader::ReadByte() {
  const uint8_t* byte = TakeBytes(1);
  return byte ? *byte : 0;
}

inline void ByteBufferStreamReader::ReadBytes(uint8_t* dest, size_t size) {
  const uint8_t* bytes = TakeBytes(size);
  if (bytes && size > 0) std::memcpy(dest, bytes, size);
}

inline void ByteBufferStreamReader::ReadAlignment(uint8_t alignment) {
  if (alignment == 0) return;
  const uint64_t beyond = location_ % alignment;
  if (beyond != 0) location_ += alignment - beyond;
}

}  // namespace cw
