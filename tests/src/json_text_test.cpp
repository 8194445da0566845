#include "src/json_text.h"

#include <QCborMap>
#include <QCborValue>
#include <QJsonDocument>

#include "tests/support/test_base.h"

namespace {

using JsonTextTest = test::TestBase;

QByteArray CborOf(const QJsonObject& object) {
  return QCborValue(QCborMap::fromJsonObject(object)).toCbor();
}

// Both directions give what Qt's own conversions give, in the form that Qt keeps, too.
void ExpectSame(const QByteArray& text) {
  const QString string = QString::fromUtf8(text.constData(), text.size());
  const QJsonObject object{{QStringLiteral("data"), string}};
  const QJsonObject made = tavo::details::ToJson(text.toStdString());
  EXPECT_EQ(object, made);
  EXPECT_EQ(CborOf(object), CborOf(made));
  tavo::details::JsonTextReader reader;
  for (int again = 0; again < 2; ++again) {
    EXPECT_EQ(string.toUtf8().toStdString(), reader.Read(made));
    EXPECT_EQ(string.toUtf8().toStdString(), reader.Read(object));
  }
}

TEST_F(JsonTextTest, TextsAreThoseOfQtsConversions) {
  for (int size : {0, 1, 23, 24, 63, 64, 65, 128, 255, 256, 65535, 65536, 1 << 21}) {
    SCOPED_TRACE(size);
    ExpectSame(QByteArray(size, 'x'));
    for (const int place : {0, size / 2, size - 1}) {
      for (const char* odd : {"\"", "\\", "\n", "\x7F", "\xC3\xA9", "\xEF\xBB\xBF", "\xFF"}) {
        if (place >= 0) ExpectSame(QByteArray(size, 'x').replace(place, 1, odd));
      }
    }
  }
  for (int c = 0; c < 256; ++c) ExpectSame(QByteArray(70, char(c)) + QByteArray(70, 'x'));
}

TEST_F(JsonTextTest, TextsOfEveryJsonAreRead) {
  tavo::details::JsonTextReader reader;
  for (const QByteArray data : {"\"\"", "\"\\u0000\"", "\"\xEF\xBB\xBF-\"", "\"\\ufeff-\"",
                                "\"\\ud800\"", "\"\\ud83d\\ude00\"", "\"\xF0\x9F\x98\x80\\n\"",
                                "\"\xC3\xA9\"", "null", "5", "[\"data\"]", "{\"data\":\"x\"}"}) {
    SCOPED_TRACE(data.constData());
    for (const char* key : {"data", "d\\u0061ta", "Data"}) {
      const QByteArray line = QByteArray("{\"\":1,\"") + key + "\":" + data + ",\"date\":\"x\"}";
      const QJsonObject message = QJsonDocument::fromJson(line).object();
      ASSERT_FALSE(message.isEmpty());
      const QJsonValue value = message.value(QStringLiteral("data"));
      std::optional<std::string> expected;
      if (value.isString()) expected = value.toString().toUtf8().toStdString();
      EXPECT_EQ(expected, reader.Read(message)) << key;
    }
  }
}

}  // namespace
