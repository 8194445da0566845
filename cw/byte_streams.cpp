#include "cw/byte_streams.h"

#include <iostream>

namespace cw {

ByteStreamWriter::~ByteStreamWriter() = default;

ByteStreamReader::~ByteStreamReader() = default;

void ByteBufferStreamWriter::WriteByte(uint8_t byte) { buffer_->WriteByte(byte); }

void ByteBufferStreamWriter::WriteBytes(const uint8_t* data, size_t size) {
  buffer_->WriteBytes(data, size);
}

void ByteBufferStreamWriter::WriteAlignment(uint8_t alignment) {
  buffer_->WriteAlignment(alignment);
}

ByteBufferStreamReader::~ByteBufferStreamReader() = default;

void ByteBufferStreamReader::ReportInvalidRead() {
  std::cerr << "Invalid read in StandardCodecByteStreamReader\n" << std::flush;
}

}  // namespace cw
