#include "desk/runtime_manager/json_line.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_set>
#include <vector>

#include <QJsonDocument>

namespace desk {
namespace {

using Json = nlohmann::json;

// Where the closing quote stands, or the end if there is none.
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

struct Counts {
  int values = 0;  // But for the first of the line.
  int containers = 0;
};

// Counts values no further than to the limit. What begins one stands behind one of the characters
// that count, outside of any text.
Counts CountValues(const QByteArray& line) {
  Counts counts;
  const char* const end = line.constData() + line.size();
  for (const char* at = line.constData(); at < end && counts.values <= kMostValues; ++at) {
    if (*at == '"') {
      at = FindEndOfText(at + 1, end);
      if (at == end) break;
    } else if (*at == ',') {
      ++counts.values;
    } else if (*at == '[' || *at == '{') {
      ++counts.values;
      ++counts.containers;
    }
  }
  return counts;
}

// Stops at the first fault.
class KeyCheck final : public Json::json_sax_t {
 public:
  const std::string& fault() const { return fault_; }

  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_array(size_t) override { return true; }
  bool end_array() override { return true; }

  bool start_object(size_t) override {
    keys_.emplace_back();
    return true;
  }
  bool end_object() override {
    keys_.pop_back();
    return true;
  }
  bool key(string_t& key) override {
    if (keys_.back().insert(key).second) return true;
    fault_ = "a key comes again";
    return false;
  }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception& error) override {
    fault_ = error.what();
    return false;
  }

 private:
  std::vector<std::unordered_set<std::string>> keys_;  // Of the objects that are open.
  std::string fault_;
};

}  // namespace

std::optional<QJsonObject> ParseLine(const QByteArray& line, QString* fault) {
  const Counts counts = CountValues(line);
  if (counts.values > kMostValues) {
    *fault = QStringLiteral("a line of more than %1 values").arg(kMostValues);
    return {};
  }
  // Most lines are one object of texts and numbers: they need no second parser.
  KeyCheck check;
  if (counts.containers > 1 && !Json::sax_parse(line.begin(), line.end(), &check)) {
    *fault = QStringLiteral("a line is refused: ") + QString::fromStdString(check.fault());
    return {};
  }
  QJsonParseError error{};
  const QJsonDocument document = QJsonDocument::fromJson(line, &error);
  if (document.isObject()) return document.object();
  *fault = QStringLiteral("a line is no JSON object: ") +
           (document.isNull() ? error.errorString() : QStringLiteral("it is an array"));
  return {};
}

}  // namespace desk
