#include "desk/common/json_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace desk {
namespace {

constexpr size_t kMaxErrorLength = 200;  // An error quotes the text, which may be long.

std::string Cut(std::string text) {
  if (text.size() <= kMaxErrorLength) return text;
  return text.substr(0, kMaxErrorLength) + "...";
}

// The text is the part "line 3, column 7: syntax error ..." of the library's longer text.
std::string Shorten(const std::string& what) {
  const size_t place = what.find("line ");
  const size_t begin = place == std::string::npos ? what.find("] ") + 2 : place;
  return Cut(what.substr(begin));
}

void ExpectDistinct(const std::vector<std::string>& keys) {
  std::vector<std::string_view> sorted(keys.begin(), keys.end());
  std::sort(sorted.begin(), sorted.end());
  const auto twice = std::adjacent_find(sorted.begin(), sorted.end());
  if (twice == sorted.end()) return;
  throw std::runtime_error("the key " + ToText(Json(Cut(std::string(*twice)))) +
                           " stands twice in one object");
}

// Builds the tree from the parser's events. The library's own builder compares each key of an
// object with all others, and copies the members of an object that grows.
class TreeBuilder final : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return Add(nullptr); }
  bool boolean(bool truth) override { return Add(truth); }
  bool number_integer(int64_t number) override { return Add(number); }
  bool number_unsigned(uint64_t number) override { return Add(number); }
  bool number_float(double number, const std::string&) override { return Add(number); }
  bool string(std::string& text) override { return Add(std::move(text)); }
  bool binary(Json::binary_t&) override { return false; }  // JSON texts have none.
  bool start_object(size_t) override { return Open(); }
  bool start_array(size_t) override { return Open(); }
  bool key(std::string& name) override {
    levels_.back().keys.push_back(std::move(name));
    return true;
  }

  bool end_array() override {
    Json array = Json::array();
    array.get_ref<Json::array_t&>() = std::move(levels_.back().elements);
    return Close(std::move(array));
  }

  bool end_object() override {
    auto& [keys, elements] = levels_.back();
    ExpectDistinct(keys);
    Json object = Json::object();
    auto& members = object.get_ref<Json::object_t&>();
    members.reserve(keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
      members.emplace_back(std::move(keys[i]), std::move(elements[i]));
    }
    return Close(std::move(object));
  }

  bool parse_error(size_t, const std::string&, const Json::exception& error) override {
    throw std::runtime_error(Shorten(error.what()));
  }

  Json Take() { return std::move(levels_.front().elements.front()); }

 private:
  struct Level {
    std::vector<std::string> keys;  // Of an object.
    std::vector<Json> elements;
  };

  bool Add(Json json) {
    levels_.back().elements.push_back(std::move(json));
    return true;
  }

  bool Open() {
    if (levels_.size() > kDeepestJson) throw std::runtime_error("it is nested too deeply");
    levels_.emplace_back();
    return true;
  }

  bool Close(Json json) {
    levels_.pop_back();
    return Add(std::move(json));
  }

  std::vector<Level> levels_{1};  // The first one takes the whole.
};

}  // namespace

Json ParseJson(std::string_view text) {
  // The parser takes a NUL for the end.
  if (text.find('\0') != text.npos) throw std::runtime_error("a NUL is no part of JSON");
  TreeBuilder builder;
  Json::sax_parse(text, &builder);
  return builder.Take();
}

}  // namespace desk
