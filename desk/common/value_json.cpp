#include "desk/common/value_json.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

#include "desk/common/utf8.h"
#include "forge/buffer.h"

namespace desk {
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

constexpr size_t kMaxAround = 16;  // Lists and maps that a program puts around a value.
constexpr int64_t kMaxExact = (int64_t{1} << 53) - 1;  // Beyond it many readers of JSON round.

// ---- Places, for errors ----

constexpr size_t kMaxSteps = 8;  // At either end of a way.

// The way from the outermost value to a part of it. `depth` counts the lists and maps on the way.
struct Place {
  Place At(std::string_view name) const { return {this, name, 0, depth + 1}; }
  Place At(size_t at) const { return {this, {}, at, depth + 1}; }

  const Place* around = nullptr;
  std::string_view key;  // Its data is null in an array.
  size_t index = 0;
  size_t depth = 0;
};

bool IsName(std::string_view key) {
  if (!key.empty() && key[0] == '$') key.remove_prefix(1);
  return !key.empty() && std::all_of(key.begin(), key.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
}

std::string ToStep(const Place& place) {
  if (!place.key.data()) return '[' + std::to_string(place.index) + ']';
  if (IsName(place.key)) return '.' + std::string(place.key);
  return '[' + ToText(Json(place.key)) + ']';
}

// The middle of a long way is left out.
std::string ToPath(const Place& place) {
  std::vector<const Place*> steps;
  for (const Place* step = &place; step->around; step = step->around) steps.push_back(step);
  std::string path = "$";
  for (size_t i = steps.size(); i-- > 0;) {
    const bool is_shown = i < kMaxSteps || i >= steps.size() - std::min(kMaxSteps, steps.size());
    if (is_shown) path += ToStep(*steps[i]);
    if (!is_shown && i == kMaxSteps) path += "...";
  }
  return path;
}

[[noreturn]] void Fail(const Place& place, const std::string& what) {
  throw std::runtime_error(ToPath(place) + ": " + what);
}

// ---- Numbers that JSON has no word for ----

template <typename T>
using Bits = std::conditional_t<sizeof(T) == sizeof(uint64_t), uint64_t, uint32_t>;

template <typename T>
Bits<T> ToBits(T number) {
  Bits<T> bits;
  std::memcpy(&bits, &number, sizeof bits);
  return bits;
}

// NaN has many bit patterns. The usual one is "NaN", another one "NaN(fff8000000000000)".
template <typename T>
std::string ToWord(T number) {
  if (std::isinf(number)) return number > 0 ? "Infinity" : "-Infinity";
  const Bits<T> bits = ToBits(number);
  if (bits == ToBits(std::numeric_limits<T>::quiet_NaN())) return "NaN";
  char digits[2 * sizeof bits];
  const auto end = std::to_chars(digits, digits + sizeof digits, bits, 16);
  return "NaN(" + std::string(digits, end.ptr) + ')';
}

template <typename T>
bool FromWord(std::string_view word, T* number) {
  constexpr T kInfinity = std::numeric_limits<T>::infinity();
  *number = word == "Infinity" ? kInfinity : word == "-Infinity" ? -kInfinity : T(NAN);
  if (word == "NaN" || !std::isnan(*number)) return true;
  if (word.size() < 5 || word.substr(0, 4) != "NaN(" || word.back() != ')') return false;
  Bits<T> bits = 0;
  const char* const end = word.data() + word.size() - 1;
  const auto result = std::from_chars(word.data() + 4, end, bits, 16);
  if (result.ec != std::errc() || result.ptr != end) return false;
  std::memcpy(number, &bits, sizeof bits);
  return std::isnan(*number);
}

// ---- To JSON ----

bool IsMark(std::string_view key);

Json Mark(const char* mark, Json content) {
  Json object = Json::object();
  object[mark] = std::move(content);
  return object;
}

// A float is written with as few digits as give it back.
double Lengthen(float number) {
  char digits[32];
  *std::to_chars(digits, digits + sizeof digits - 1, number).ptr = '\0';
  double read = 0;
  std::from_chars(digits, digits + std::strlen(digits), read);
  return static_cast<float>(read) == number ? read : static_cast<double>(number);
}

Json NumberToJson(int32_t number) { return number; }
Json NumberToJson(int64_t number) {
  if (number >= -kMaxExact && number <= kMaxExact) return number;
  return std::to_string(number);
}
Json NumberToJson(double number) {
  return std::isfinite(number) ? Json(number) : Json(ToWord(number));
}
Json NumberToJson(float number) {
  return std::isfinite(number) ? Json(Lengthen(number)) : Json(ToWord(number));
}

template <typename T>
constexpr const char* ListMark() {
  if constexpr (std::is_same_v<T, int32_t>) return "$int32s";
  if constexpr (std::is_same_v<T, int64_t>) return "$int64s";
  if constexpr (std::is_same_v<T, double>) return "$float64s";
  if constexpr (std::is_same_v<T, float>) return "$float32s";
}

// Whether the map is an object that is read as this map.
bool HasPlainKeys(const EncodableMap& map) {
  const auto is_plain = [&map](const auto& entry) {
    const auto* text = entry.first.template GetIf<std::string>();
    return text && IsUtf8(*text) && !(map.size() == 1 && IsMark(*text));
  };
  return std::all_of(map.begin(), map.end(), is_plain);
}

class Writer {
 public:
  explicit Writer(SmallInt64 small_int64) : small_int64_(small_int64) {}

  Json Write(const EncodableValue& value, const Place& place) const {
    if (place.depth > kDeepestValue + kMaxAround) Fail(place, "it is nested too deeply");
    return value.Visit([&](const auto& held) { return WriteHeld(held, place); });
  }

 private:
  // One overload for each type of the alternatives.
  static Json WriteHeld(std::monostate, const Place&) { return nullptr; }
  static Json WriteHeld(bool truth, const Place&) { return truth; }
  static Json WriteHeld(int32_t number, const Place&) { return number; }
  static Json WriteHeld(double number, const Place&) {
    Json json = NumberToJson(number);
    return json.is_number() ? json : Mark("$float64", std::move(json));
  }
  static Json WriteHeld(const std::string& text, const Place&) {
    if (IsUtf8(text)) return text;
    return Mark("$text", ToBase64(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
  }
  static Json WriteHeld(const std::vector<uint8_t>& bytes, const Place&) {
    return Mark("$bytes", ToBase64(bytes.data(), bytes.size()));
  }
  template <typename T>
  static Json WriteHeld(const std::vector<T>& numbers, const Place&) {
    Json array = Json::array();
    for (const T number : numbers) array.push_back(NumberToJson(number));
    return Mark(ListMark<T>(), std::move(array));
  }
  [[noreturn]] static Json WriteHeld(const cw::CustomEncodableValue&, const Place& place) {
    Fail(place, "a custom value has no JSON");
  }

  // A small one would come back as int32.
  Json WriteHeld(int64_t number, const Place&) const {
    const bool is_small = number == static_cast<int32_t>(number);
    Json json = NumberToJson(number);
    const bool is_plain = json.is_number() && !(is_small && small_int64_ == SmallInt64::kMarked);
    return is_plain ? json : Mark("$int64", std::to_string(number));
  }

  Json WriteHeld(const EncodableList& list, const Place& place) const {
    Json array = Json::array();
    for (size_t i = 0; i < list.size(); ++i) array.push_back(Write(list[i], place.At(i)));
    return array;
  }

  Json WriteHeld(const EncodableMap& map, const Place& place) const {
    if (!HasPlainKeys(map)) {
      return Mark("$map", WritePairs(map, {&place, "$map", 0, place.depth}));
    }
    Json object = Json::object();
    auto& members = object.get_ref<Json::object_t&>();
    members.reserve(map.size());  // An object that grows copies its members.
    for (const auto& [key, mapped] : map) {
      const auto& name = key.Get<std::string>();
      members.emplace_back(name, Write(mapped, place.At(name)));
    }
    return object;
  }

  Json WritePairs(const EncodableMap& map, const Place& place) const {
    Json pairs = Json::array();
    for (const auto& [key, mapped] : map) {
      const Place pair{&place, {}, pairs.size(), place.depth};
      Json json = Json::array();
      json.push_back(Write(key, pair.At(size_t{0})));
      json.push_back(Write(mapped, pair.At(size_t{1})));
      pairs.push_back(std::move(json));
    }
    return pairs;
  }

  const SmallInt64 small_int64_;
};

// ---- From JSON ----

EncodableValue Read(const Json& json, const Place& place);

// At each list and map; the object of a mark adds no level to the value.
void ExpectRoom(const Place& place) {
  if (place.depth < kDeepestValue) return;
  Fail(place, "it is nested deeper than " + std::to_string(kDeepestValue));
}

const std::string& ExpectText(const Json& json, const Place& place, const char* what) {
  if (!json.is_string()) Fail(place, std::string(what) + " is wanted");
  return json.get_ref<const std::string&>();
}

const Json& ExpectArray(const Json& json, const Place& place, const char* what) {
  if (!json.is_array()) Fail(place, std::string(what) + " is wanted");
  return json;
}

bool IsBeyondInt64(const Json& json) {
  return json.is_number_unsigned() &&
         json.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
}

template <typename T>
T ReadInteger(const Json& json, const Place& place) {
  constexpr const char* kWhat =
      sizeof(T) == 8 ? "an integer of 64 bits is wanted" : "an integer of 32 bits is wanted";
  int64_t number = 0;
  if (json.is_number_integer() && !IsBeyondInt64(json)) {
    number = json.get<int64_t>();
  } else {
    if (!json.is_string()) Fail(place, kWhat);
    const auto& digits = json.get_ref<const std::string&>();
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || digits.empty()) Fail(place, kWhat);
  }
  if (static_cast<T>(number) != number) Fail(place, kWhat);
  return static_cast<T>(number);
}

template <typename T>
T ReadFloat(const Json& json, const Place& place) {
  if (json.is_number()) {
    // The text of the largest number may be a little more than it.
    const auto rounded = static_cast<T>(json.get<double>());
    if (std::isinf(rounded)) Fail(place, "the number is too large");
    return rounded;
  }
  T number = 0;
  if (!json.is_string() || !FromWord(json.get_ref<const std::string&>(), &number)) {
    Fail(place, "a number, \"NaN\", \"Infinity\" or \"-Infinity\" is wanted");
  }
  return number;
}

template <typename T>
EncodableValue ReadNumber(const Json& json, const Place& place) {
  if constexpr (std::is_integral_v<T>) return ReadInteger<T>(json, place);
  if constexpr (!std::is_integral_v<T>) return ReadFloat<T>(json, place);
}

template <typename T>
EncodableValue ReadNumbers(const Json& json, const Place& place) {
  std::vector<T> numbers;
  for (const Json& element : ExpectArray(json, place, "an array of numbers")) {
    const Place at = place.At(numbers.size());
    if constexpr (std::is_integral_v<T>) numbers.push_back(ReadInteger<T>(element, at));
    if constexpr (!std::is_integral_v<T>) numbers.push_back(ReadFloat<T>(element, at));
  }
  return numbers;
}

std::vector<uint8_t> ReadBase64(const Json& json, const Place& place) {
  const auto& text = ExpectText(json, place, "a Base64 text");
  try {
    return FromBase64(text);
  } catch (const std::runtime_error& error) {
    Fail(place, error.what());
  }
}

EncodableValue ReadBytes(const Json& json, const Place& place) { return ReadBase64(json, place); }

EncodableValue ReadText(const Json& json, const Place& place) {
  const auto bytes = ReadBase64(json, place);
  return std::string(bytes.begin(), bytes.end());
}

EncodableValue ReadPairs(const Json& json, const Place& place) {
  ExpectRoom(place);
  EncodableMap map;
  size_t index = 0;
  for (const Json& pair : ExpectArray(json, place, "an array of [key, value]")) {
    const Place at{&place, {}, index++, place.depth};
    if (!pair.is_array() || pair.size() != 2) Fail(at, "a [key, value] is wanted");
    EncodableValue key = Read(pair[0], at.At(size_t{0}));
    if (map.count(key) != 0) Fail(at, "the key stands twice");
    map.emplace(std::move(key), Read(pair[1], at.At(size_t{1})));
  }
  return map;
}

struct MarkedForm {
  const char* mark;
  EncodableValue (*read)(const Json& content, const Place& place);
};

constexpr MarkedForm kMarkedForms[] = {
    {"$bytes", ReadBytes},
    {"$text", ReadText},
    {"$int64", ReadNumber<int64_t>},
    {"$float64", ReadNumber<double>},
    {ListMark<int32_t>(), ReadNumbers<int32_t>},
    {ListMark<int64_t>(), ReadNumbers<int64_t>},
    {ListMark<double>(), ReadNumbers<double>},
    {ListMark<float>(), ReadNumbers<float>},
    {"$map", ReadPairs},
};

const MarkedForm* FindMarkedForm(std::string_view key) {
  if (key.empty() || key[0] != '$') return nullptr;
  const auto* const found =
      std::find_if(std::begin(kMarkedForms), std::end(kMarkedForms),
                   [key](const MarkedForm& form) { return form.mark == key; });
  return found == std::end(kMarkedForms) ? nullptr : found;
}

bool IsMark(std::string_view key) { return FindMarkedForm(key) != nullptr; }

EncodableValue ReadPlainNumber(const Json& json) {
  if (!json.is_number_integer() || IsBeyondInt64(json)) return json.get<double>();
  const auto number = json.get<int64_t>();
  const auto small = static_cast<int32_t>(number);
  if (small == number) return small;
  return EncodableValue(std::in_place_type<int64_t>, number);
}

EncodableValue ReadArray(const Json& json, const Place& place) {
  ExpectRoom(place);
  EncodableList list;
  list.reserve(json.size());
  for (const Json& element : json) list.push_back(Read(element, place.At(list.size())));
  return list;
}

EncodableValue ReadObject(const Json& json, const Place& place) {
  const auto& members = json.get_ref<const Json::object_t&>();
  if (members.size() == 1) {
    const auto& [key, content] = *members.begin();
    if (const auto* form = FindMarkedForm(key)) {
      return form->read(content, {&place, key, 0, place.depth});
    }
  }
  ExpectRoom(place);
  EncodableMap map;
  for (const auto& [key, content] : members) map[key] = Read(content, place.At(key));
  return map;
}

EncodableValue Read(const Json& json, const Place& place) {
  if (json.is_number()) return ReadPlainNumber(json);
  if (json.is_array()) return ReadArray(json, place);
  if (json.is_object()) return ReadObject(json, place);
  if (json.is_string()) return json.get_ref<const std::string&>();
  if (json.is_boolean()) return json.get<bool>();
  return {};
}

// ---- Texts ----

// Whether a control character begins here that the JSON library leaves as it is: U+007F to U+009F.
bool IsControl(const std::string& text, size_t at) {
  if (text[at] == '\x7F') return true;
  return text[at] == '\xC2' && static_cast<uint8_t>(text[at + 1]) < 0xA0;
}

// They stand in texts only, where JSON has another form for them. The text is UTF-8.
std::string EscapeControls(std::string text) {
  constexpr char kDigits[] = "0123456789abcdef";
  constexpr char kSuspects[] = "\x7F\xC2";
  size_t at = text.find_first_of(kSuspects);
  if (at == std::string::npos) return text;
  std::string escaped;
  size_t begin = 0;  // Of what is not in `escaped` yet.
  for (; at != std::string::npos; at = text.find_first_of(kSuspects, at + 1)) {
    if (!IsControl(text, at)) continue;
    const size_t end = text[at] == '\x7F' ? at + 1 : at + 2;
    const auto point = static_cast<uint8_t>(text[end - 1]);
    escaped.append(text, begin, at - begin).append("\\u00");
    escaped.append({kDigits[point >> 4], kDigits[point & 15]});
    begin = end;
  }
  return escaped.append(text, begin);
}

}  // namespace

Json ToJson(const EncodableValue& value, SmallInt64 small_int64) {
  return Writer(small_int64).Write(value, {});
}

EncodableValue FromJson(const Json& json) { return Read(json, {}); }

std::string ToText(const Json& json) {
  return EscapeControls(json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string ToText(const EncodableValue& value, SmallInt64 small_int64) {
  return ToText(ToJson(value, small_int64));
}

std::string ToBase64(const uint8_t* data, size_t size) {
  return forge::Buffer(data, size).ToBase64();
}

std::vector<uint8_t> FromBase64(const std::string& text) {
  const auto bytes = forge::Buffer::FromBase64(text);
  if (bytes.GetSize() == 0 && !text.empty()) throw std::runtime_error("a Base64 text is wanted");
  return {bytes.GetData(), bytes.GetData() + bytes.GetSize()};
}

}  // namespace desk
