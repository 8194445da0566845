#include "desk/runtime_manager/plain_line.h"

#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include <QCborMap>
#include <QCborValue>
#include <QJsonDocument>

namespace desk {
namespace {

// Up to this size Qt's parser, and its conversions from UTF-16, cost less than the ways without.
constexpr int kShort = 2048;

// Beyond this size an insertion, which converts the text to UTF-16 and back, costs more memory and
// more time than Qt's parser.
constexpr int kLong = 4 << 20;

// Sixteen characters. The compiler makes vector instructions of what is done to them.
using Block = int8_t __attribute__((vector_size(16)));

// Marks control characters, characters beyond ASCII, which are negative, and those with an escape.
// A question mark may stand for what could not be converted to 8-bit text, so it is marked, too.
Block MarkUnplain(Block block) {
  return (block < 0x20) | (block == '"') | (block == '\\') | (block == '?');
}

bool IsPlain(std::string_view text) {
  Block marks{};
  for (; text.size() >= sizeof(Block); text.remove_prefix(sizeof(Block))) {
    Block block;
    std::memcpy(&block, text.data(), sizeof block);
    marks |= MarkUnplain(block);
  }
  Block last;
  std::memset(&last, ' ', sizeof last);
  std::memcpy(&last, text.data(), text.size());
  marks |= MarkUnplain(last);
  uint64_t halves[2];
  std::memcpy(halves, &marks, sizeof halves);
  return (halves[0] | halves[1]) == 0;
}

// Takes a text from well-formed CBOR. Its size is in the low bits of the first byte if it is small;
// otherwise these tell how many bytes follow that hold the size.
std::string_view TakeCborText(const char** at) {
  const auto next = [at] { return static_cast<uint8_t>(*(*at)++); };
  size_t size = next() & 0x1F;
  if (size >= 24) {
    int bytes = 1 << (size - 24);
    for (size = 0; bytes > 0; --bytes) size = size << 8 | next();
  }
  return {std::exchange(*at, *at + size), size};
}

QLatin1String ToLatin1(std::string_view text) {
  return QLatin1String(text.data(), static_cast<int>(text.size()));
}

std::string_view View(const QByteArray& text) {
  return {text.constData(), static_cast<size_t>(text.size())};
}

// Needs no conversion of the text: in CBOR's order shorter texts come first.
bool IsLong(const QCborValue& text) {
  static const auto& short_text = *new QCborValue(QString(kShort, QLatin1Char('x')));
  return short_text < text;
}

// What stands before the text on a line; there is room for the text behind it.
QByteArray MakeBegin(std::string_view key, int text_size) {
  QByteArray line;
  line.reserve(static_cast<int>(key.size()) + text_size + 8);
  return line.append("{\"").append(key.data(), static_cast<int>(key.size())).append("\":\"");
}

constexpr char kEndOfLine[] = "\"}\n";

QByteArray MakeShortLine(const QString& key, const QCborValue& text) {
  const QByteArray key_bytes = key.toLatin1();
  const QByteArray text_bytes = text.toString().toLatin1();
  if (!IsPlain(View(key_bytes)) || !IsPlain(View(text_bytes))) return {};
  return MakeBegin(View(key_bytes), text_bytes.size()).append(text_bytes).append(kEndOfLine);
}

// The line is made in place, so that a large text is not held twice.
QByteArray MakeLongLine(const QCborMap& map) {
  QByteArray line = map.toCborValue().toCbor();
  const char* at = line.constData() + 1;  // Behind the head of a map with one member.
  const std::string_view key = TakeCborText(&at);
  const std::string_view text = TakeCborText(&at);
  if (!IsPlain(key) || !IsPlain(text)) return {};
  const QByteArray begin = MakeBegin(key, 0);
  // The heads of a map, a key and a long text are never shorter than what stands there in JSON.
  line.remove(0, static_cast<int>(text.data() - line.constData()) - begin.size());
  std::memcpy(line.data(), begin.constData(), static_cast<size_t>(begin.size()));
  return line.append(kEndOfLine);
}

}  // namespace

std::optional<QJsonObject> ParsePlainLine(const QByteArray& line) {
  if (line.size() > kLong) return {};
  constexpr std::string_view kBegin = "{\"", kMiddle = "\":\"", kEnd = "\"}";
  std::string_view rest = View(line);
  if (rest.substr(0, kBegin.size()) != kBegin) return {};
  rest.remove_prefix(kBegin.size());
  const std::string_view key = rest.substr(0, rest.find('"'));
  rest.remove_prefix(key.size());
  if (rest.size() < kMiddle.size() + kEnd.size()) return {};
  const std::string_view text =
      rest.substr(kMiddle.size(), rest.size() - kMiddle.size() - kEnd.size());
  if (rest.substr(0, kMiddle.size()) != kMiddle || rest.substr(rest.size() - kEnd.size()) != kEnd ||
      !IsPlain(key) || !IsPlain(text)) {
    return {};
  }
  if (line.size() <= kShort) return QJsonDocument::fromJson(line).object();
  QJsonObject object;
  object.insert(ToLatin1(key), QJsonValue(ToLatin1(text)));
  return object;
}

QByteArray MakePlainLine(const QJsonObject& object) {
  if (object.size() != 1) return {};
  const QCborMap map = QCborMap::fromJsonObject(object);  // Shares the object's texts.
  const QCborValue text = map.constBegin().value();
  if (!text.isString()) return {};
  return IsLong(text) ? MakeLongLine(map) : MakeShortLine(object.constBegin().key(), text);
}

}  // namespace desk
