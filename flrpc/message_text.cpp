#include "flrpc/message_text.h"

#include <cstdint>
#include <exception>
#include <utility>

#include "cw/admission.h"
#include "cw/byte_streams.h"
#include "cw/standard_codec_serializer.h"
#include "forge/base64.h"
#include "forge/buffer.h"
#include "forge/logger.h"
#include "forge/spare_texts.h"

namespace flrpc {
namespace {

using cw::EncodableValue;

// ---- To bytes -----------------------------------------------------------------------------------

// Keys, and the values that always follow them, in their encoding (docs/wire-format.md). A text is
// the type byte 7, its size and its bytes; a map is the type byte 13 and its size.
constexpr std::string_view kIdKey = "\7\2id";
constexpr std::string_view kVersionMember = "\7\7jsonrpc\7\0032.0";
constexpr std::string_view kMethodKey = "\7\6method";
constexpr std::string_view kParamsKey = "\7\6params";
constexpr std::string_view kResultKey = "\7\6result";
constexpr std::string_view kErrorKey = "\7\5error";
constexpr std::string_view kCodeKey = "\7\4code";
constexpr std::string_view kDataKey = "\7\4data";
constexpr std::string_view kMessageKey = "\7\7message";

constexpr size_t kUsualSize = 256;

// Writes the members of a map without making the map. They must come in the order of their keys.
class MapWriter {
 public:
  explicit MapWriter(forge::Buffer* buffer) : stream_(buffer) { buffer->Reserve(kUsualSize); }

  void Open(uint8_t members) {
    const char head[] = {13, static_cast<char>(members)};
    Encoded({head, sizeof head});
  }

  void Encoded(std::string_view bytes) {
    stream_.WriteBytes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }

  void Text(std::string_view key, std::string_view text) {
    Encoded(key);
    if (text.size() > 127) return Write(EncodableValue(text));
    const char head[] = {7, static_cast<char>(text.size())};
    Encoded({head, sizeof head});
    if (!text.empty()) Encoded(text);
  }

  void Value(std::string_view key, const EncodableValue& value) {
    Encoded(key);
    Write(value);
  }

 private:
  void Write(const EncodableValue& value) {
    cw::StandardCodecSerializer::GetInstance().WriteValue(value, &stream_);
  }

  cw::ByteBufferStreamWriter stream_;
};

void WriteError(MapWriter& map, const Message::Error& error) {
  const bool has_data = !error.data.IsNull();
  map.Encoded(kErrorKey);
  map.Open(has_data ? 3 : 2);
  map.Value(kCodeKey, error.code);
  if (has_data) map.Value(kDataKey, error.data);
  map.Text(kMessageKey, error.message);
}

void Encode(const Message::Request& request, MapWriter& map) {
  const bool has_params = !request.params.IsNull();
  map.Open(has_params ? 4 : 3);
  map.Text(kIdKey, request.id.GetText());
  map.Encoded(kVersionMember);
  map.Text(kMethodKey, request.method);
  if (has_params) map.Value(kParamsKey, request.params);
}

void Encode(const Message::Notification& notification, MapWriter& map) {
  const bool has_params = !notification.params.IsNull();
  map.Open(has_params ? 3 : 2);
  map.Encoded(kVersionMember);
  map.Text(kMethodKey, notification.method);
  if (has_params) map.Value(kParamsKey, notification.params);
}

void Encode(const Message::Response& response, MapWriter& map) {
  map.Open(3);
  if (const auto* error = response.GetError()) WriteError(map, *error);
  map.Text(kIdKey, response.id.GetText());
  map.Encoded(kVersionMember);
  if (const auto* result = response.GetResult()) map.Value(kResultKey, *result);
}

void Encode(const Message::Error& error, MapWriter& map) {
  map.Open(2);
  WriteError(map, error);
  map.Encoded(kVersionMember);
}

// The result is ToEncodable().Serialize(), but neither the map nor copies of its values are made.
forge::Buffer Serialize(const Message& message) {
  const auto* response = message.GetResponse();
  if (message.IsEmpty() || (response && response->body.valueless_by_exception())) {
    return message.ToEncodable().Serialize();
  }
  forge::Buffer buffer;
  MapWriter map(&buffer);
  if (response) {
    Encode(*response, map);
  } else if (const auto* request = message.GetRequest()) {
    Encode(*request, map);
  } else if (const auto* notification = message.GetNotification()) {
    Encode(*notification, map);
  } else if (const auto* error = message.GetError()) {
    Encode(*error, map);
  }
  return buffer;
}

// ---- From a text --------------------------------------------------------------------------------

// The bytes of a Base64 text. There are none when the text is invalid. A short text needs no memory
// of the heap.
class DecodedText {
 public:
  explicit DecodedText(std::string_view text)
      : size_(forge::base64::DecodedSize(text.data(), text.size())) {
    if (size_ > sizeof small_) {
      large_ = forge::SpareTexts::Get().Take(size_);
      large_.resize(size_);
      data_ = reinterpret_cast<uint8_t*>(large_.data());
    }
    if (!forge::base64::Decode(text.data(), text.size(), data_)) size_ = 0;
  }
  ~DecodedText() { forge::SpareTexts::Get().Keep(std::move(large_)); }
  DecodedText(const DecodedText&) = delete;
  DecodedText& operator=(const DecodedText&) = delete;

  const uint8_t* GetData() const { return data_; }
  size_t GetSize() const { return size_; }

 private:
  size_t size_;
  alignas(8) uint8_t small_[512];  // Lists of doubles are read in place where they are aligned.
  std::string large_;
  uint8_t* data_ = small_;
};

Message Decode(const DecodedText& bytes) {
  if (const char* cause = cw::FindInadmissible(bytes.GetData(), bytes.GetSize())) {
    FORGE_LOG(kError) << "RPC message refused: " << cause;
    return {};
  }
  auto value = EncodableValue::Deserialize(bytes.GetData(), bytes.GetSize());
  return value.IsNull() ? Message() : Message::FromEncodable(std::move(value));
}

// Returns the result of `decode`, or the empty message when there is no memory for it.
template <typename Function>
Message OrEmpty(Function&& decode) {
  try {
    return decode();
  } catch (const std::exception& exception) {
    FORGE_LOG(kError) << "RPC message refused: " << exception.what();
    return {};
  }
}

}  // namespace

std::string Message::ToBase64() const { return Serialize(*this).ToBase64(); }

Message Message::FromBase64(const std::string& text) { return details::FromText(text); }

Message Message::FromBase64(std::string&& text) {
  return OrEmpty([&text] {
    const DecodedText bytes(text);
    std::string().swap(text);
    return Decode(bytes);
  });
}

namespace details {

MessageText::MessageText(Message&& message) {
  const forge::Buffer bytes = Serialize(Message(std::move(message)));
  const size_t size = forge::base64::EncodedSize(bytes.GetSize());
  if (size > forge::SpareTexts::kMaxKept) {
    text_ = bytes.ToBase64();
  } else {
    text_ = forge::SpareTexts::Get().Take(size);
    text_.resize(size);
    forge::base64::Encode(bytes.GetData(), bytes.GetSize(), text_.data());
  }
}

MessageText::~MessageText() { forge::SpareTexts::Get().Keep(std::move(text_)); }

Message FromText(std::string_view text) {
  return OrEmpty([text] { return Decode(DecodedText(text)); });
}

}  // namespace details
}  // namespace flrpc
