#include "desk/common/value_json.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "forge/buffer.h"

namespace desk {
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

Json ToJson(const EncodableValue& value, int depth);

template <typename T>
Json NumberToJson(T number) {
  if constexpr (std::is_floating_point_v<T>) {
    if (!std::isfinite(number)) return nullptr;
  }
  return number;
}

std::string KeyText(const EncodableValue& key, int depth) {
  const auto* text = key.GetIf<std::string>();
  return text ? *text : ToText(ToJson(key, depth));
}

template <typename T>
Json SequenceToJson(const std::vector<T>& elements, int depth) {
  Json array = Json::array();
  for (const auto& element : elements) {
    if constexpr (std::is_same_v<T, EncodableValue>) {
      array.push_back(ToJson(element, depth));
    } else {
      array.push_back(NumberToJson(element));
    }
  }
  return array;
}

// One overload for each type of the alternatives; `depth` is the depth of the values inside.
Json ContentToJson(std::monostate, int) { return nullptr; }
Json ContentToJson(const cw::CustomEncodableValue&, int) { return nullptr; }
Json ContentToJson(const std::string& text, int) { return text; }
template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
Json ContentToJson(T number, int) {
  return NumberToJson(number);
}
template <typename T>
Json ContentToJson(const std::vector<T>& elements, int depth) {
  return SequenceToJson(elements, depth);
}
Json ContentToJson(const EncodableMap& map, int depth) {
  Json object = Json::object();
  for (const auto& entry : map) object[KeyText(entry.first, depth)] = ToJson(entry.second, depth);
  return object;
}

Json ToJson(const EncodableValue& value, int depth) {
  if (depth > kDeepestJson) return nullptr;
  return value.Visit([depth](const auto& content) { return ContentToJson(content, depth + 1); });
}

EncodableValue FromInteger(int64_t number) {
  const auto small = static_cast<int32_t>(number);
  if (small == number) return small;
  return EncodableValue(std::in_place_type<int64_t>, number);
}

EncodableValue FromUnsigned(uint64_t number) {
  constexpr auto kLargest = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (number > kLargest) return static_cast<double>(number);
  return FromInteger(static_cast<int64_t>(number));
}

EncodableValue FromJson(const Json& json, int depth) {
  if (depth > kDeepestJson) {
    throw std::runtime_error("it is nested deeper than " + std::to_string(kDeepestJson));
  }
  switch (json.type()) {
    case Json::value_t::boolean:
      return json.get<bool>();
    case Json::value_t::number_integer:
      return FromInteger(json.get<int64_t>());
    case Json::value_t::number_unsigned:
      return FromUnsigned(json.get<uint64_t>());
    case Json::value_t::number_float:
      return json.get<double>();
    case Json::value_t::string:
      return json.get<std::string>();
    case Json::value_t::array: {
      EncodableList list;
      for (const Json& element : json) list.push_back(FromJson(element, depth + 1));
      return list;
    }
    case Json::value_t::object: {
      EncodableMap map;
      for (const auto& item : json.items()) {
        map[EncodableValue(item.key())] = FromJson(item.value(), depth + 1);
      }
      return map;
    }
    default:
      return {};
  }
}

// ---- With types ----

template <typename T>
const char* TypeName() {
  if constexpr (std::is_same_v<T, std::monostate>) return "null";
  if constexpr (std::is_same_v<T, bool>) return "bool";
  if constexpr (std::is_same_v<T, int32_t>) return "int32";
  if constexpr (std::is_same_v<T, int64_t>) return "int64";
  if constexpr (std::is_same_v<T, double>) return "float64";
  if constexpr (std::is_same_v<T, std::string>) return "text";
  if constexpr (std::is_same_v<T, std::vector<uint8_t>>) return "bytes";
  if constexpr (std::is_same_v<T, std::vector<int32_t>>) return "int32 list";
  if constexpr (std::is_same_v<T, std::vector<int64_t>>) return "int64 list";
  if constexpr (std::is_same_v<T, std::vector<double>>) return "float64 list";
  if constexpr (std::is_same_v<T, std::vector<float>>) return "float32 list";
  if constexpr (std::is_same_v<T, cw::EncodableList>) return "list";
  if constexpr (std::is_same_v<T, cw::EncodableMap>) return "map";
  return "custom";
}

// JSON has no such numbers, so they become texts.
template <typename T>
Json NumberOrText(T number) {
  if constexpr (std::is_floating_point_v<T>) {
    if (std::isnan(number)) return "NaN";
    if (std::isinf(number)) return number > 0 ? "Infinity" : "-Infinity";
  }
  return number;
}

template <typename T>
Json TypedContent(const T& content) {
  if constexpr (std::is_same_v<T, std::monostate> || std::is_same_v<T, cw::CustomEncodableValue>) {
    return nullptr;
  } else if constexpr (std::is_same_v<T, std::vector<uint8_t>>) {
    return forge::Buffer(content).ToBase64();
  } else if constexpr (std::is_same_v<T, cw::EncodableMap>) {
    Json entries = Json::array();
    for (const auto& [key, mapped] : content)
      entries.push_back({ToTypedJson(key), ToTypedJson(mapped)});
    return entries;
  } else if constexpr (std::is_same_v<T, cw::EncodableList>) {
    Json elements = Json::array();
    for (const auto& element : content) elements.push_back(ToTypedJson(element));
    return elements;
  } else if constexpr (std::is_arithmetic_v<T>) {
    return NumberOrText(content);
  } else if constexpr (std::is_same_v<T, std::string>) {
    return content;
  } else {
    Json numbers = Json::array();
    for (const auto number : content) numbers.push_back(NumberOrText(number));
    return numbers;
  }
}

}  // namespace

Json ToTypedJson(const EncodableValue& value) {
  return value.Visit([](const auto& content) -> Json {
    return {{"type", TypeName<std::decay_t<decltype(content)>>()},
            {"value", TypedContent(content)}};
  });
}

Json ToJson(const EncodableValue& value) { return ToJson(value, 1); }

EncodableValue FromJson(const Json& json) { return FromJson(json, 1); }

std::string ToText(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string ToText(const EncodableValue& value) { return ToText(ToJson(value)); }

std::string ToBase64(const uint8_t* data, size_t size) {
  return forge::Buffer(data, size).ToBase64();
}

std::vector<uint8_t> FromBase64(const std::string& text) {
  const auto bytes = forge::Buffer::FromBase64(text);
  if (bytes.GetSize() == 0 && !text.empty()) throw std::runtime_error("a Base64 text is wanted");
  return {bytes.GetData(), bytes.GetData() + bytes.GetSize()};
}

}  // namespace desk
