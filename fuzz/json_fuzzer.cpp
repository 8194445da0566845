// Values to JSON and back. The first byte chooses: the rest is an encoded value, or JSON text.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "cw/admission.h"
#include "flrpc/qt/utils.h"
#include "fuzz/input.h"
#include "fuzz/values.h"

// The leak sanitizer's, where there is one.
extern "C" {
[[gnu::weak]] void __lsan_disable();
[[gnu::weak]] void __lsan_enable();
}

namespace {

using cw::EncodableValue;
using flrpc::qt::EncodableMapToJsonString;
using flrpc::qt::EncodableToJson;
using flrpc::qt::JsonToEncodable;

// Qt's parser loses the memory of a value whose key comes again, which is not the bridge's fault.
QJsonDocument Parse(const QByteArray& text) {
  if (__lsan_disable) __lsan_disable();
  const QJsonDocument document = QJsonDocument::fromJson(text);
  if (__lsan_enable) __lsan_enable();
  return document;
}

QByteArray TextOf(const QJsonValue& json) {
  return QJsonDocument(QJsonObject{{QStringLiteral("v"), json}}).toJson(QJsonDocument::Compact);
}

// What was JSON once stays as it is. Not so texts that begin with a byte order mark: each way takes
// one.
void CheckStays(const QJsonValue& json) {
  EncodableValue value;
  QJsonValue again;
  FUZZ_CHECK(JsonToEncodable(json, value));
  FUZZ_CHECK(EncodableToJson(value, again));
  if (TextOf(json).contains("\xEF\xBB\xBF")) return;
  FUZZ_CHECK(again == json);
  if (const auto* map = value.GetIf<cw::EncodableMap>()) {
    const QJsonDocument parsed = Parse(EncodableMapToJsonString(*map).toUtf8());
    // As texts: Qt reads large numbers as integers, unequal to the doubles that they are.
    FUZZ_CHECK(parsed.isObject() && TextOf(parsed.object()) == TextOf(json));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Choices choices(data, size);
  const bool is_text = choices.Byte() % 2 == 1;
  const std::vector<uint8_t> rest = choices.Rest();
  if (!is_text && !fuzz::IsToBeRun(rest.data(), rest.size())) return 0;
  const fuzz::Limits limits;
  EncodableValue value;
  if (is_text) {
    const auto* text = reinterpret_cast<const char*>(rest.data());
    const QJsonDocument document = Parse(QByteArray(text, static_cast<int>(rest.size())));
    const QJsonValue json =
        document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
    FUZZ_CHECK(JsonToEncodable(json, value));
  } else if (!cw::FindInadmissible(rest.data(), rest.size())) {
    value = EncodableValue::Deserialize(rest.data(), rest.size());
  }
  QJsonValue json;
  if (EncodableToJson(value, json)) CheckStays(json);
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
