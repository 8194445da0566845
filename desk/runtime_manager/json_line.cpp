#include "desk/runtime_manager/json_line.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include <QJsonArray>
#include <QJsonDocument>

#include "desk/runtime_manager/plain_line.h"

namespace desk {
namespace {

// Returns the position of the closing quote, or the end if there is none.
const char* FindEndOfText(const char* at, const char* end) {
  while (at < end) {
    const auto* quote =
        static_cast<const char*>(std::memchr(at, '"', static_cast<size_t>(end - at)));
    if (!quote) return end;
    const char* before = quote;
    while (before > at && before[-1] == '\\') --before;
    if ((quote - before) % 2 == 0) return quote;
    at = quote + 1;
  }
  return end;
}

// The keys of the objects that are open, without escapes.
class OpenKeys {
 public:
  void Open() { begins_.push_back(keys_.size()); }

  void Add(std::string_view key) {
    if (key.find('\\') == std::string_view::npos) return keys_.push_back(key);
    const QByteArray list = '[' + QByteArray('"' + QByteArray(key.data(), int(key.size()))) + "\"]";
    const QString text = QJsonDocument::fromJson(list).array().at(0).toString();
    keys_.push_back(unescaped_.emplace_back(text.toStdString()));
  }

  size_t Count() const { return keys_.size(); }

  // Ends the innermost object. False when it has a duplicate key.
  bool Close() {
    if (begins_.empty()) return true;  // The parser will reject it.
    const auto begin = keys_.begin() + static_cast<std::ptrdiff_t>(begins_.back());
    begins_.pop_back();
    std::sort(begin, keys_.end());
    const bool is_unique = std::adjacent_find(begin, keys_.end()) == keys_.end();
    keys_.erase(begin, keys_.end());
    return is_unique;
  }

 private:
  std::vector<std::string_view> keys_;
  std::vector<size_t> begins_;  // The first key of each object; lists have none.
  std::deque<std::string> unescaped_;
};

// Returns why the parser must not get the line, or the empty text when it may. Text that is no JSON
// is left to the parser, which reads it in the same order.
QString FindFault(const QByteArray& line) {
  OpenKeys keys;
  size_t values = 0;  // Without the first value of the line.
  std::string_view text;
  const char* const end = line.constData() + line.size();
  for (const char* at = line.constData(); at < end; ++at) {
    switch (*at) {
      case '"': {
        const char* const begin = at + 1;
        at = FindEndOfText(begin, end);
        if (at == end) return {};
        text = {begin, static_cast<size_t>(at - begin)};
        break;
      }
      case '[':
      case '{':
        keys.Open();
        [[fallthrough]];
      case ',':
        if (++values > kMaxLineValues) {
          return QStringLiteral("a line of more than %1 values").arg(kMaxLineValues);
        }
        break;
      case ':':
        if (keys.Count() == values) return {};  // No JSON.
        keys.Add(text);
        break;
      case ']':
      case '}':
        if (!keys.Close()) return QStringLiteral("an object on the line repeats a key");
        break;
      default:
        break;
    }
  }
  return {};
}

}  // namespace

std::optional<QJsonObject> ParseLine(const QByteArray& line, QString* fault) {
  fault->clear();
  if (auto object = ParsePlainLine(line)) return object;
  *fault = FindFault(line);
  if (!fault->isEmpty()) return {};
  QJsonParseError error{};
  const QJsonDocument document = QJsonDocument::fromJson(line, &error);
  if (document.isObject()) return document.object();
  *fault = QStringLiteral("the line is not a JSON object: ") +
           (document.isNull() ? error.errorString() : QStringLiteral("it is an array"));
  return {};
}

QByteArray MakeLine(const QJsonObject& object) {
  QByteArray line = MakePlainLine(object);
  if (!line.isEmpty()) return line;
  return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

}  // namespace desk
