// Values to JSON and back. The first byte chooses: the rest is an encoded value, or a line of JSON,
// as it comes from another process.
#include <QJsonArray>
#include <QJsonDocument>

#include "desk/runtime_manager/json_line.h"
#include "flrpc/qt/utils.h"
#include "fuzz/input.h"

using namespace flrpc::qt;
using cw::EncodableValue;

static auto TextOf(const QJsonArray& json) { return QJsonDocument(json).toJson(); }

// What was JSON once stays as it is. Not so texts that begin with a byte order mark: each way takes
// one.
static void CheckStays(const QJsonValue& json) {
  EncodableValue value;
  QJsonValue again;
  assert(JsonToEncodable(json, value));
  assert(EncodableToJson(value, again));
  const QByteArray text = TextOf({json});
  if (text.contains("\xEF\xBB\xBF")) return;
  assert(again == json);
  if (const auto* map = value.GetIf<cw::EncodableMap>()) {
    const QByteArray line = EncodableMapToJsonString(*map).toUtf8();
    // As texts: Qt reads large numbers as integers, unequal to the doubles that they are.
    assert(TextOf({QJsonDocument::fromJson(line).object()}) == text);
  }
}

void fuzz::Run(const forge::Buffer& input) {
  if (input.GetSize() == 0) return;
  const uint8_t* data = input.GetData();
  const uint8_t* end = data + input.GetSize();
  const forge::Buffer rest({data + 1, end});
  EncodableValue value;
  if (*data % 2 == 1) {
    QString fault;
    const auto line = QByteArray::fromStdString({data + 1, end});
    const auto object = desk::ParseLine(line, &fault);
    assert(!object || JsonToEncodable(*object, value));
  } else if (IsLight(rest) && IsAdmissible(rest)) {
    value = EncodableValue::Deserialize(rest);
  }
  QJsonValue json;
  if (EncodableToJson(value, json)) CheckStays(json);
}
