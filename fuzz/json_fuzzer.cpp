// Values to JSON and back. The first byte chooses: the rest is an encoded value, or a line of JSON,
// as it comes from another process.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "desk/runtime_manager/json_line.h"
#include "flrpc/qt/utils.h"
#include "fuzz/values.h"

namespace {

using cw::EncodableValue;

QByteArray TextOf(const QJsonValue& json) { return QJsonDocument(QJsonArray{json}).toJson(); }

// What was JSON once stays as it is. Not so texts that begin with a byte order mark: each way takes
// one.
void CheckStays(const QJsonValue& json) {
  EncodableValue value;
  QJsonValue again;
  FUZZ_CHECK(flrpc::qt::JsonToEncodable(json, value));
  FUZZ_CHECK(flrpc::qt::EncodableToJson(value, again));
  if (TextOf(json).contains("\xEF\xBB\xBF")) return;
  FUZZ_CHECK(again == json);
  if (const auto* map = value.GetIf<cw::EncodableMap>()) {
    const QByteArray line = flrpc::qt::EncodableMapToJsonString(*map).toUtf8();
    // As texts: Qt reads large numbers as integers, unequal to the doubles that they are.
    FUZZ_CHECK(TextOf(QJsonDocument::fromJson(line).object()) == TextOf(json));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Choices choices(data, size);
  const bool is_text = choices.Byte() % 2 == 1;
  const std::vector<uint8_t> rest = choices.Rest();
  if (!is_text && !fuzz::IsLight(rest.data(), rest.size())) return 0;
  const fuzz::Limits limits;
  EncodableValue value;
  if (is_text) {
    QString fault;
    const auto line = QByteArray::fromStdString({rest.begin(), rest.end()});
    const auto object = desk::ParseLine(line, &fault);
    FUZZ_CHECK(!object || flrpc::qt::JsonToEncodable(*object, value));
  } else if (!cw::FindInadmissible(rest.data(), rest.size())) {
    value = EncodableValue::Deserialize(rest.data(), rest.size());
  }
  QJsonValue json;
  if (flrpc::qt::EncodableToJson(value, json)) CheckStays(json);
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
