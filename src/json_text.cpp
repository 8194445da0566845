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

QJsonObject ParsePlain(std::string_view text) {
  QByteArray line;
  line.reserve(static_cast<int>(kHead.size() + text.size() + kTail.size()));
  for (const std::string_view part : {kHead, text, kTail}) {
    line.append(part.data(), static_cast<int>(part.size()));
  }
  return QJsonDocument::fromJson(line).object();
}

QJsonObject Insert(std::string_view text) {
  QJsonObject message;
  message.insert(QLatin1String(kKey),
                 QString::fromUtf8(text.data(), static_cast<int>(text.size())));
  return message;
}

}  // namespace

QJsonObject ToJson(std::string_view text) {
  constexpr size_t kMaxLine = std::numeric_limits<int>::max();
  if (text.size() > kMaxLine) throw std::length_error("text is too long");
  if (text.size() <= kMaxLine - kHead.size() - kTail.size() && IsPlain(text)) {
    QJsonObject message = ParsePlain(text);
    if (!message.isEmpty()) return message;  // Empty: the parser takes no text of this size.
  }
  return Insert(text);
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
  text_.append(data + skipped, static_cast<size_t>(size - skipped));
  if (head_left_) *head_left_ -= skipped;
  return size;
} catch (const std::bad_alloc&) {
  has_failed_ = true;
  return -1;
}

}  // namespace tavo::details
