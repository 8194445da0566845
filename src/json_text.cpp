#include "src/json_text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include <QByteArray>
#include <QCborMap>
#include <QCborValue>
#include <QJsonDocument>
#include <QString>

#include "forge/spare_texts.h"

namespace tavo::details {
namespace {

constexpr char kKey[] = "data";
constexpr std::string_view kHead = "{\"data\":\"";
constexpr std::string_view kTail = "\"}";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool IsAscii(std::string_view text) {
  uint64_t bits = 0;
  for (uint64_t word; text.size() >= sizeof word; text.remove_prefix(sizeof word)) {
    std::memcpy(&word, text.data(), sizeof word);
    bits |= word;
  }
  for (const char c : text) bits |= static_cast<unsigned char>(c);
  return (bits & 0x8080808080808080) == 0;
}

// The parser makes fewer and smaller blocks than an insertion, which converts the text to UTF-16
// and back. But it looks at each byte, so in between the insertion is faster.
bool IsParsedFaster(size_t size) {
  constexpr size_t kFew = 700;
  constexpr size_t kMany = size_t{1} << 20;
  constexpr size_t kMost = size_t{1} << 30;  // Qt's sizes are of the type int.
  return size < kFew || (size > kMany && size < kMost);
}

bool IsUnescaped(std::string_view text) {
  return text.find('"') == text.npos && text.find('\\') == text.npos;
}

QJsonObject ParseUnescaped(std::string_view text) {
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
  if (!IsAscii(text)) return Insert(QString::fromUtf8(text.data(), size));
  if (IsParsedFaster(text.size()) && IsUnescaped(text)) {
    QJsonObject message = ParseUnescaped(text);
    if (!message.isEmpty()) return message;  // Empty: the parser refuses the text.
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
    text_ = forge::SpareTexts::Get().Take(text_size);
    text_.clear();
  }
  text_.append(data + skipped, text_size);
  if (head_left_) *head_left_ -= skipped;
  return size;
} catch (...) {
  has_failed_ = true;
  return -1;
}

}  // namespace tavo::details
