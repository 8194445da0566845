#include "src/json_text.h"

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include <QByteArray>
#include <QCborMap>
#include <QCborValue>
#include <QJsonDocument>
#include <QString>

#include "forge/spare_blocks.h"

namespace tavo::details {
namespace {

constexpr char kKey[] = "data";
constexpr std::string_view kHead = "{\"data\":\"";
constexpr std::string_view kTail = "\"}";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

constexpr bool IsPlain(char c) { return c >= ' ' && c < 0x7F && c != '"' && c != '\\'; }

// Returns whether the text stands for itself in a line of JSON, as Base64 does. The inner loop has
// a fixed length and no exit, so that the compiler uses vectors.
bool IsPlain(std::string_view text) {
  constexpr size_t kBlock = 64;
  for (; text.size() >= kBlock; text.remove_prefix(kBlock)) {
    unsigned char odd = 0;
    for (size_t i = 0; i < kBlock; ++i) odd |= static_cast<unsigned char>(!IsPlain(text[i]));
    if (odd != 0) return false;
  }
  return std::all_of(text.begin(), text.end(), [](char c) { return IsPlain(c); });
}

// The parser makes few and small blocks, but it looks at each byte. The insertion converts the text
// to UTF-16 and back.
bool IsParsedFaster(int size) { return size < 700 || size > 1 << 20; }

QJsonObject ParsePlain(std::string_view text) {
  QByteArray line;
  line.reserve(static_cast<int>(kHead.size() + text.size() + kTail.size()));
  for (const std::string_view part : {kHead, text, kTail}) {
    line.append(part.data(), static_cast<int>(part.size()));
  }
  return QJsonDocument::fromJson(line).object();
}

QJsonObject Insert(const QJsonValue& text) {
  QJsonObject message;
  message.insert(QLatin1String(kKey), text);
  return message;
}

}  // namespace

QJsonObject ToJson(std::string_view text) {
  if (text.size() > std::numeric_limits<int>::max()) throw std::length_error("text is too long");
  const auto size = static_cast<int>(text.size());
  if (!IsPlain(text)) return Insert(QString::fromUtf8(text.data(), size));
  if (IsParsedFaster(size)) {
    QJsonObject message = ParsePlain(text);
    if (!message.isEmpty()) return message;  // Empty: the parser takes no text of this size.
  }
  return Insert(QLatin1String(text.data(), size));
}

std::optional<std::string> JsonTextReader::Read(const QJsonObject& message) {
  QCborValue data = QCborMap::fromJsonObject(message).value(QLatin1String(kKey));
  if (!data.isString()) return std::nullopt;
  sink_.Begin();
  data.toCbor(writer_);
  std::string text = sink_.Take();
  // QString drops a byte order mark of text in UTF-8.
  const bool has_mark = text.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0;
  return has_mark ? data.toString().toUtf8().toStdString() : std::move(text);
}

void JsonTextReader::Sink::Begin() {
  text_.clear();
  head_left_.reset();
  has_failed_ = false;
}

std::string JsonTextReader::Sink::Take() {
  if (has_failed_) throw std::bad_alloc();
  return std::move(text_);
}

// Throws nothing: Qt's writer is the caller.
qint64 JsonTextReader::Sink::writeData(const char* data, qint64 size) try {
  if (size > 0 && !head_left_) {
    const int info = *data & 31;  // The size itself, or the width of the size that follows.
    head_left_ = info < 24 ? 1 : 1 + (1 << (info - 24));
  }
  const qint64 skipped = std::min(size, head_left_.value_or(0));
  const auto text_size = static_cast<size_t>(size - skipped);
  if (text_.empty()) {
    text_ = forge::SpareTexts().Take(text_size);
    text_.clear();
  }
  text_.append(data + skipped, text_size);
  if (head_left_) *head_left_ -= skipped;
  return size;
} catch (const std::bad_alloc&) {
  has_failed_ = true;
  return -1;
}

}  // namespace tavo::details
