// Values to JSON and back. The first byte chooses: the rest is an encoded value, or a line of JSON,
// as it comes from another process, or a text that a message carries.
#include <QJsonArray>
#include <QJsonDocument>

#include "desk/runtime_manager/json_line.h"
#include "flrpc/qt/utils.h"
#include "fuzz/input.h"
#include "src/json_text.h"

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

// The messages of texts, and the texts of messages, are those of Qt's usual conversions.
static void CheckText(const QJsonObject& message) {
  static tavo::details::JsonTextReader reader;
  const QJsonValue text = message.value(QStringLiteral("data"));
  const auto read = reader.Read(message);
  assert(read.has_value() == text.isString());
  if (!read) return;
  assert(*read == text.toString().toUtf8().toStdString());
  const QString string = QString::fromUtf8(read->data(), static_cast<int>(read->size()));
  assert(tavo::details::ToJson(*read) == (QJsonObject{{QStringLiteral("data"), string}}));
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
    CheckText(object.value_or(QJsonObject()));
    CheckText(tavo::details::ToJson({line.constData(), static_cast<size_t>(line.size())}));
  } else if (IsLight(rest) && IsAdmissible(rest)) {
    value = EncodableValue::Deserialize(rest);
  }
  QJsonValue json;
  if (EncodableToJson(value, json)) CheckStays(json);
}
