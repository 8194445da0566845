#include "desk/embedder/messages.h"

#include <optional>
#include <utility>
#include <vector>

#include "cw/admission.h"
#include "cw/byte_streams.h"
#include "cw/standard_codec_serializer.h"
#include "desk/common/value_json.h"

namespace desk {
namespace {

using cw::EncodableMap;
using cw::EncodableValue;
using Values = std::vector<EncodableValue>;

constexpr uint8_t kHighestTag = 14;  // Of the standard codec.

// Reads the bytes from `begin` on as `count` values. Empty when they are anything else. The
// admission checks them as the elements of one list. In front of them are as many nulls as keep
// their position modulo the alignment of eight.
std::optional<Values> ReadValues(const uint8_t* data, size_t size, size_t begin, uint8_t count) {
  const auto nulls = static_cast<uint8_t>(6 + begin);
  std::vector<uint8_t> list = {12, static_cast<uint8_t>(nulls + count)};
  list.resize(list.size() + nulls);
  list.insert(list.end(), data + begin, data + size);
  if (cw::FindInadmissible(list.data(), list.size())) return {};
  cw::ByteBufferStreamReader reader(data, size);
  for (size_t i = 0; i < begin; ++i) reader.ReadByte();
  Values values;
  while (values.size() < count && reader.GetRemaining() > 0) {
    if (*reader.PeekBytes(1) > kHighestTag) return {};  // The reader would write a line.
    values.push_back(cw::StandardCodecSerializer::GetInstance().ReadValue(&reader));
  }
  if (values.size() < count || reader.GetRemaining() > 0) return {};
  return values;
}

}  // namespace

EncodableMap DescribeMessage(const uint8_t* data, size_t size) {
  if (!data || size == 0) return {{"message", EncodableValue()}};
  if (auto value = ReadValues(data, size, 0, 1)) return {{"message", std::move((*value)[0])}};
  if (auto call = ReadValues(data, size, 0, 2); call && (*call)[0].Is<std::string>()) {
    return {{"method", std::move((*call)[0])}, {"arguments", std::move((*call)[1])}};
  }
  if (auto success = ReadValues(data, size, 1, 1); success && data[0] == 0) {
    return {{"success", std::move((*success)[0])}};
  }
  if (auto error = ReadValues(data, size, 1, 3); error && data[0] == 1) {
    return {{"error", EncodableMap{{"code", std::move((*error)[0])},
                                   {"message", std::move((*error)[1])},
                                   {"details", std::move((*error)[2])}}}};
  }
  return {{"bytes", ToBase64(data, size)}};
}

}  // namespace desk
