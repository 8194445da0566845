// The streams that the codec writes to and reads from. A codec extension receives them by their
// interfaces; ByteBufferStreamWriter and ByteBufferStreamReader are the ones over memory.
//
//   forge::Buffer buffer;
//   cw::ByteBufferStreamWriter writer(&buffer);
//   serializer.WriteValue(value, &writer);
//
//   cw::ByteBufferStreamReader reader(buffer.GetData(), buffer.GetSize());
//   const cw::EncodableValue copy = serializer.ReadValue(&reader);
//
// Threads:   each stream is for one thread at a time.
// Ownership: a stream borrows the buffer or the bytes for its whole life.
// Errors:    writing propagates allocation failures. A read beyond the end writes one line to
//            standard error, gives zeros and does not advance. Reading never throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "forge/buffer.h"
#include "forge/export.h"

namespace cw {

// The sink of an encoding. Virtual operations grow only at the end.
class FORGE_EXPORT ByteStreamWriter {
 public:
  virtual ~ByteStreamWriter();

  // Appends one byte.
  virtual void WriteByte(uint8_t byte) = 0;

  // Appends `size` bytes. The data is borrowed until the call returns.
  virtual void WriteBytes(const uint8_t* data, size_t size) = 0;

  // Appends zero bytes up to the next multiple of `alignment`, counted from the sink's first byte.
  // The codec asks for the alignments 4 and 8.
  virtual void WriteAlignment(uint8_t alignment) = 0;
};

// The source of an encoding. Virtual operations grow only at the end.
class FORGE_EXPORT ByteStreamReader {
 public:
  virtual ~ByteStreamReader();

  // Returns the next byte, or 0 at the end.
  virtual uint8_t ReadByte() = 0;

  // Reads all of the `size` bytes, or none: `dest` keeps its content when fewer bytes are left.
  virtual void ReadBytes(uint8_t* dest, size_t size) = 0;

  // Skips to the next multiple of `alignment`, counted from the source's first byte. The new
  // position may lie beyond the end; then every further read fails.
  virtual void ReadAlignment(uint8_t alignment) = 0;
};

// Appends to a buffer, which must outlive the stream. Null data and the alignment 0 write nothing.
class FORGE_EXPORT ByteBufferStreamWriter final : public ByteStreamWriter {
 public:
  explicit ByteBufferStreamWriter(forge::Buffer* buffer) : buffer_(buffer) {}

  void WriteByte(uint8_t byte) override;
  void WriteBytes(const uint8_t* data, size_t size) override;
  void WriteAlignment(uint8_t alignment) override;

  // The buffer given to the constructor. Its earlier content counts for the alignment.
  forge::Buffer* GetBuffer() const { return buffer_; }

 private:
  forge::Buffer* buffer_;
};

// Reads a range of bytes, which must outlive the stream. Null data is an empty range, whatever the
// size. The alignment 0 skips nothing.
class FORGE_EXPORT ByteBufferStreamReader final : public ByteStreamReader {
 public:
  ByteBufferStreamReader(const uint8_t* data, size_t size) : data_(data), size_(data ? size : 0) {}
  ~ByteBufferStreamReader() override;

  uint8_t ReadByte() override;
  void ReadBytes(uint8_t* dest, size_t size) override;
  void ReadAlignment(uint8_t alignment) override;

  // Reads `size` bytes without a copy. Returns where they lie in the range, or null and a line on
  // standard error when fewer are left.
  const uint8_t* TakeBytes(uint64_t size);

  // Looks at the next `size` bytes without reading them. Null, without a line, when fewer are left.
  const uint8_t* PeekBytes(uint64_t size) const;

  // The number of bytes that are left; 0 when an alignment has skipped beyond the end.
  size_t GetRemaining() const {
    return location_ < size_ ? static_cast<size_t>(size_ - location_) : 0;
  }

 private:
  static void ReportInvalidRead();

  const uint8_t* data_;
  size_t size_;
  uint64_t location_ = 0;  // 64 bits, because it may go beyond the end and must not wrap.
};

// ------------------------------------------------------------------------------------------------

inline const uint8_t* ByteBufferStreamReader::PeekBytes(uint64_t size) const {
  static constexpr uint8_t kNothing = 0;  // An empty range without an address points here.
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
