// Structures as JSON objects and back. Each structure has one list of its keys: a function over an
// archive, which is an ObjectReader for reading and an ObjectWriter for writing.
//
//   archive("width", view.width, Limits{1, 4096});
//
// A structure within another one has its own Read and Write, in its namespace.
//
// Errors:  std::runtime_error with the JSON pointer to what is wrong.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "cw/encodable_value.h"
#include "desk/common/value_json.h"

namespace desk {

struct Limits {
  double least = 0;
  double most = std::numeric_limits<uint32_t>::max();
  uint32_t step = 0;  // Non-zero: only multiples of it are allowed.
};

// A part of the JSON text, and its JSON pointer.
struct Node {
  const Json& json;
  std::string pointer;

  Node At(const std::string& key) const {
    std::string escaped;
    for (const char c : key) {
      escaped += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
    }
    return {json.at(key), pointer + "/" + escaped};
  }
  Node At(size_t index) const { return {json.at(index), pointer + "/" + std::to_string(index)}; }

  [[noreturn]] void Fail(const std::string& what) const {
    throw std::runtime_error((pointer.empty() ? "the whole" : pointer) + ": " + what);
  }
  void Expect(bool is_right, const char* what) const {
    if (!is_right) Fail(std::string(what) + " is wanted, not " + Kind());
  }
  const char* Kind() const {
    if (json.is_null()) return "null";
    return json.is_object()    ? "an object"
           : json.is_array()   ? "an array"
           : json.is_string()  ? "a text"
           : json.is_boolean() ? "true or false"
                               : "a number";
  }
};

inline std::string NumberText(double number) {
  const auto integer = static_cast<int64_t>(number);
  return ToText(static_cast<double>(integer) == number ? Json(integer) : Json(number));
}

inline void Check(const Node& node, double number, const Limits& limits) {
  if (number < limits.least || number > limits.most) {
    node.Fail(ToText(node.json) + " is not within " + NumberText(limits.least) + " to " +
              NumberText(limits.most));
  }
  if (limits.step != 0 && std::fmod(number, limits.step) != 0) {
    node.Fail(ToText(node.json) + " is not a multiple of " + std::to_string(limits.step));
  }
}

// ---- Reading, by type ----

inline void Read(const Node& node, bool* target) {
  node.Expect(node.json.is_boolean(), "true or false");
  *target = node.json.get<bool>();
}

inline void Read(const Node& node, std::string* target) {
  node.Expect(node.json.is_string(), "a text");
  *target = node.json.get<std::string>();
  if (target->find('\0') != std::string::npos) node.Fail("a text without NUL is wanted");
}

inline void Read(const Node& node, uint32_t* target, const Limits& limits = {}) {
  node.Expect(node.json.is_number_integer(), "an integer");
  Check(node, node.json.get<double>(), limits);
  *target = node.json.get<uint32_t>();
}

inline void Read(const Node& node, int* target, const Limits& limits) {
  node.Expect(node.json.is_number_integer(), "an integer");
  Check(node, node.json.get<double>(), limits);
  *target = node.json.get<int>();
}

inline void Read(const Node& node, double* target, const Limits& limits) {
  node.Expect(node.json.is_number(), "a number");
  Check(node, node.json.get<double>(), limits);
  *target = node.json.get<double>();
}

inline void Read(const Node& node, cw::EncodableValue* target) {
  try {
    *target = FromJson(node.json);
  } catch (const std::runtime_error& error) {
    node.Fail(error.what());
  }
}

// Bytes, as a Base64 text.
inline void Read(const Node& node, std::vector<uint8_t>* target) {
  node.Expect(node.json.is_string(), "a Base64 text");
  try {
    *target = FromBase64(node.json.get<std::string>());
  } catch (const std::runtime_error& error) {
    node.Fail(error.what());
  }
}

template <typename T, size_t kSize>
void Read(const Node& node, std::array<T, kSize>* target) {
  node.Expect(node.json.is_array(), "an array");
  if (node.json.size() != kSize) {
    node.Fail(std::to_string(kSize) + " elements are wanted, not " +
              std::to_string(node.json.size()));
  }
  for (size_t i = 0; i < kSize; ++i) Read(node.At(i), &(*target)[i]);
}

template <typename T>
void Read(const Node& node, std::optional<T>* target) {
  Read(node, &target->emplace());
}
inline void Read(const Node& node, std::optional<uint32_t>* target, const Limits& limits) {
  Read(node, &target->emplace(), limits);
}

template <typename T>
void Read(const Node& node, std::vector<T>* target) {
  node.Expect(node.json.is_array(), "an array");
  target->clear();
  for (size_t i = 0; i < node.json.size(); ++i) Read(node.At(i), &target->emplace_back());
}

template <typename T>
void Read(const Node& node, std::map<std::string, T>* target) {
  node.Expect(node.json.is_object(), "an object");
  target->clear();
  for (const auto& item : node.json.items()) Read(node.At(item.key()), &(*target)[item.key()]);
}

// Texts by their kinds; the keys are numbers.
inline void Read(const Node& node, std::map<uint32_t, std::string>* target, const Limits& kinds) {
  node.Expect(node.json.is_object(), "an object");
  target->clear();
  for (const auto& item : node.json.items()) {
    const Node text = node.At(item.key());
    uint32_t kind = static_cast<uint32_t>(kinds.least);
    while (kind <= kinds.most && std::to_string(kind) != item.key()) ++kind;
    if (kind > kinds.most) {
      text.Fail("there is no such kind; " + NumberText(kinds.least) + " to " +
                NumberText(kinds.most) + " are");
    }
    Read(text, &(*target)[kind]);
  }
}

class ObjectReader {
 public:
  explicit ObjectReader(const Node& node) : node_(node) {
    node.Expect(node.json.is_object(), "an object");
  }

  template <typename T, typename... Limit>
  void operator()(const char* key, T& target, const Limit&... limits) {
    known_.emplace_back(key);
    if (node_.json.contains(key)) Read(node_.At(key), &target, limits...);
  }
  void Ignore(const char* key) { known_.emplace_back(key); }

  void ExpectKnownKeysOnly() const {
    for (const auto& item : node_.json.items()) {
      bool is_known = false;
      for (const std::string& key : known_) is_known = is_known || key == item.key();
      if (!is_known) node_.At(item.key()).Fail("there is no such key");
    }
  }

 private:
  const Node& node_;
  std::vector<std::string> known_;
};

// ---- Writing, by type ----

inline Json Write(bool source) { return source; }
inline Json Write(uint32_t source) { return source; }
inline Json Write(double source) { return source; }
inline Json Write(const std::string& source) { return source; }
inline Json Write(const cw::EncodableValue& source) { return ToJson(source); }
inline Json Write(const std::vector<uint8_t>& source) {
  return ToBase64(source.data(), source.size());
}

template <typename Sequence>
Json WriteSequence(const Sequence& source) {
  Json array = Json::array();
  for (const auto& element : source) array.push_back(Write(element));
  return array;
}
template <typename T, size_t kSize>
Json Write(const std::array<T, kSize>& source) {
  return WriteSequence(source);
}
template <typename T>
Json Write(const std::vector<T>& source) {
  return WriteSequence(source);
}

inline std::string KeyText(const std::string& key) { return key; }
inline std::string KeyText(uint32_t key) { return std::to_string(key); }
template <typename Key, typename T>
Json Write(const std::map<Key, T>& source) {
  Json object = Json::object();
  for (const auto& entry : source) object[KeyText(entry.first)] = Write(entry.second);
  return object;
}

class ObjectWriter {
 public:
  template <typename T, typename... Limit>
  void operator()(const char* key, const T& source, const Limit&...) {
    json_[key] = Write(source);
  }
  template <typename T, typename... Limit>
  void operator()(const char* key, const std::optional<T>& source, const Limit&...) {
    if (source) json_[key] = Write(*source);
  }
  void Ignore(const char*) {}

  Json Take() { return std::move(json_); }

 private:
  Json json_ = Json::object();
};

}  // namespace desk
