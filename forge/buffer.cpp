#include "forge/buffer.h"

#include <cstring>
#include <utility>

#include "forge/base64.h"
#include "forge/logger.h"
#include "forge/proc_table.h"

namespace forge {
namespace {

constexpr std::size_t kMaxBase64Groups = std::size_t{1} << 28;  // From here on texts are refused.

}  // namespace

Buffer::Buffer(const std::vector<uint8_t>& bytes) : bytes_(bytes) {}

Buffer::Buffer(std::vector<uint8_t>&& bytes) : bytes_(std::move(bytes)) {}

Buffer::Buffer(const uint8_t* data, size_t size) { WriteBytes(data, size); }

void Buffer::WriteByte(uint8_t byte) { bytes_.push_back(byte); }

void Buffer::WriteBytes(const uint8_t* data, size_t size) {
  if (data) bytes_.insert(bytes_.end(), data, data + size);
}

void Buffer::WriteAlignment(uint8_t alignment) {
  if (alignment == 0) return;
  const std::size_t beyond = bytes_.size() % alignment;
  if (beyond != 0) bytes_.resize(bytes_.size() + alignment - beyond);
}

void Buffer::Reserve(size_t size) { bytes_.reserve(size); }

size_t Buffer::GetCapacity() const { return bytes_.capacity(); }

uint8_t* Buffer::GetData() { return bytes_.empty() ? nullptr : bytes_.data(); }

const uint8_t* Buffer::GetData() const { return bytes_.empty() ? nullptr : bytes_.data(); }

size_t Buffer::GetSize() const { return bytes_.size(); }

std::unique_ptr<std::vector<uint8_t>> Buffer::Extract() {
  if (bytes_.empty()) return nullptr;
  return std::make_unique<std::vector<uint8_t>>(std::exchange(bytes_, {}));
}

ForgeResult Buffer::ToCAPI(ForgeBufferView* view, uint32_t size) const {
  if (!view) {
    FORGE_LOG(kError) << "Structure pointer is null";
    return FORGE_RESULT_INVALID_ARGUMENT;
  }
  std::memset(static_cast<void*>(view), 0, size);
  FillCovered(view, size, {size, GetData(), GetSize()});
  return FORGE_RESULT_OK;
}

Buffer Buffer::FromCAPI(ForgeBufferView* view) {
  const ForgeBufferView covered = CopyCovered(view);
  return {covered.data, covered.size};
}

std::string Buffer::ToBase64() const {
  const std::size_t text_size = base64::EncodedSize(bytes_.size());
  if (text_size / 4 >= kMaxBase64Groups) {
    FORGE_LOG(kError) << "Buffer is too large to encode as Base64.";
    return {};
  }
  std::string text(text_size, '\0');
  base64::Encode(bytes_.data(), bytes_.size(), text.data());
  return text;
}

Buffer Buffer::FromBase64(const std::string& text) {
  Buffer buffer;
  buffer.bytes_.resize(base64::DecodedSize(text.data(), text.size()));
  if (!base64::Decode(text.data(), text.size(), buffer.bytes_.data())) return {};
  return buffer;
}

}  // namespace forge
