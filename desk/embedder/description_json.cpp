// The description in JSON. Each structure has one list of its keys, Fields, which an ObjectReader
// goes through to read it and an ObjectWriter to write it.
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "desk/embedder/description.h"
#include "desk/embedder/json.h"
#include "desk/embedder/offer.h"

namespace desk {
namespace {

struct Limits {
  double least = 0;
  double most = std::numeric_limits<uint32_t>::max();
  uint32_t step = 0;  // Non-zero: multiples of it only.
};
constexpr Limits kDegrees{0, 270, 90};
constexpr Limits kInformationKinds{1, 3};
constexpr Limits kDirectoryKinds{1, 23};

// A part of the JSON text, and where it stands.
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

std::string NumberText(double number) { return ToText(Json(static_cast<int64_t>(number))); }

void Check(const Node& node, double number, const Limits& limits) {
  if (number < limits.least || number > limits.most) {
    node.Fail(ToText(node.json) + " is not within " + NumberText(limits.least) + " to " +
              NumberText(limits.most));
  }
  if (limits.step != 0 && std::fmod(number, limits.step) != 0) {
    node.Fail(ToText(node.json) + " is no multiple of " + std::to_string(limits.step));
  }
}

// ---- Reading, by type ----

class ObjectReader;
template <typename T>
void ReadObject(const Node& node, T* target);

void Read(const Node& node, bool* target) {
  node.Expect(node.json.is_boolean(), "true or false");
  *target = node.json.get<bool>();
}

void Read(const Node& node, std::string* target) {
  node.Expect(node.json.is_string(), "a text");
  *target = node.json.get<std::string>();
  if (target->find('\0') != std::string::npos) node.Fail("a text without NUL is wanted");
}

void Read(const Node& node, uint32_t* target, const Limits& limits = {}) {
  node.Expect(node.json.is_number_integer(), "an integer");
  Check(node, node.json.get<double>(), limits);
  *target = node.json.get<uint32_t>();
}

void Read(const Node& node, int* target, const Limits& limits) {
  node.Expect(node.json.is_number_integer(), "an integer");
  Check(node, node.json.get<double>(), limits);
  *target = node.json.get<int>();
}

void Read(const Node& node, float* target, const Limits& limits) {
  node.Expect(node.json.is_number(), "a number");
  Check(node, node.json.get<double>(), limits);
  *target = node.json.get<float>();
}

void Read(const Node& node, cw::EncodableValue* target) {
  try {
    *target = FromJson(node.json);
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
void Read(const Node& node, std::optional<uint32_t>* target, const Limits& limits) {
  Read(node, &target->emplace(), limits);
}

void Read(const Node& node, Answer* target);
void Read(const Node& node, Step* target);
void Read(const Node& node, Theme* target) { ReadObject(node, target); }
void Read(const Node& node, View* target) { ReadObject(node, target); }
void Read(const Node& node, WindowResult* target) { ReadObject(node, target); }
void Read(const Node& node, DeclaredSizes* target) { ReadObject(node, target); }

template <typename T>
void Read(const Node& node, std::vector<T>* target) {
  node.Expect(node.json.is_array(), "an array");
  target->clear();
  for (size_t i = 0; i < node.json.size(); ++i) Read(node.At(i), &target->emplace_back());
}

void Read(const Node& node, std::map<std::string, Answer>* target) {
  node.Expect(node.json.is_object(), "an object");
  target->clear();
  for (const auto& item : node.json.items()) Read(node.At(item.key()), &(*target)[item.key()]);
}

// Texts by kind: the keys are numbers.
void Read(const Node& node, std::map<uint32_t, std::string>* target, const Limits& kinds) {
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

template <typename T>
Json WriteObject(const T& source);

Json Write(bool source) { return source; }
Json Write(uint32_t source) { return source; }
Json Write(float source) { return source; }
Json Write(const std::string& source) { return source; }
Json Write(const cw::EncodableValue& source) { return ToJson(source); }
Json Write(const Answer& source);
Json Write(const Step& source);
Json Write(const Theme& source) { return WriteObject(source); }
Json Write(const View& source) { return WriteObject(source); }
Json Write(const WindowResult& source) { return WriteObject(source); }
Json Write(const DeclaredSizes& source) { return WriteObject(source); }

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

std::string KeyText(const std::string& key) { return key; }
std::string KeyText(uint32_t key) { return std::to_string(key); }
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

// ---- The keys ----

template <typename Archive, typename Source>
void Fields(Archive& archive, Source& it) {
  using T = std::remove_const_t<Source>;
  if constexpr (std::is_same_v<T, Theme>) {
    archive("flag", it.flag);
    archive("values", it.values);
    archive("texts", it.texts);
  } else if constexpr (std::is_same_v<T, View>) {
    archive("visibility", it.visibility, Limits{1, 5});
    archive("orientation", it.orientation, kDegrees);
    archive("device_orientation", it.device_orientation, kDegrees);
    archive("width", it.width);
    archive("height", it.height);
    archive("pixel_ratio", it.pixel_ratio, Limits{0, 1000});
    archive("keyboard", it.keyboard);
    archive("statusbar", it.statusbar, Limits{0, 2});
    archive("statusbar_visible", it.statusbar_visible);
    archive("background_visible", it.background_visible);
    archive("type", it.type, Limits{1, 3});
    archive("theme", it.theme);
  } else if constexpr (std::is_same_v<T, WindowResult>) {
    archive("value", it.value);
    archive("text", it.text);
  } else if constexpr (std::is_same_v<T, DeclaredSizes>) {
    const auto limits = [](const char* name) {
      return Limits{0, static_cast<double>(GetWholeSize(name))};
    };
    archive("context", it.context, limits("context"));
    archive("application", it.application, limits("application"));
    archive("view", it.view, limits("view"));
    archive("texture", it.texture, limits("texture"));
    archive("messenger", it.messenger, limits("messenger"));
  } else {
    static_assert(std::is_same_v<T, Description>);
    archive("information", it.information, kInformationKinds);
    archive("directories", it.directories, kDirectoryKinds);
    archive("arguments", it.arguments);
    archive("permissions", it.permissions);
    archive("os_version", it.os_version);
    archive("embedder_version", it.embedder_version);
    archive("view", it.view);
    archive("payload", it.payload);
    archive("main_window_result", it.main_window_result);
    archive("popup_window_result", it.popup_window_result);
    archive("declared_sizes", it.declared_sizes);
    archive("channels", it.channels);
    archive("steps", it.steps);
    archive.Ignore("offered");
  }
}

template <typename T>
void ReadObject(const Node& node, T* target) {
  ObjectReader reader(node);
  Fields(reader, *target);
  reader.ExpectKnownKeysOnly();
}

template <typename T>
Json WriteObject(const T& source) {
  ObjectWriter writer;
  Fields(writer, source);
  return writer.Take();
}

// ---- Answers and steps: objects of one key, which tells the kind ----

template <typename T>
struct Variant {
  const char* key;
  void (*read)(const Node& node, T* target);
  void (*write)(const T& source, Json* target);
};

template <typename T, size_t kCount>
void ReadVariant(const Node& node, const Variant<T> (&variants)[kCount], T* target) {
  node.Expect(node.json.is_object(), "an object");
  if (node.json.size() != 1) node.Fail("one key is wanted, which tells the kind");
  const std::string& key = node.json.items().begin().key();
  for (size_t i = 0; i < kCount; ++i) {
    if (key != variants[i].key) continue;
    target->kind = static_cast<typename T::Kind>(i);
    return variants[i].read(node.At(key), target);
  }
  node.At(key).Fail("there is no such key");
}

template <typename T, size_t kCount>
Json WriteVariant(const T& source, const Variant<T> (&variants)[kCount]) {
  const Variant<T>& variant = variants[source.kind];
  Json content;
  variant.write(source, &content);
  return Json{{variant.key, std::move(content)}};
}

void ReadTrue(const Node& node) {
  node.Expect(node.json.is_boolean() && node.json.get<bool>(), "true");
}

// In the order of Answer::Kind.
constexpr Variant<Answer> kAnswers[] = {
    {"value", [](const Node& node, Answer* it) { Read(node, &it->value); },
     [](const Answer& it, Json* json) { *json = ToJson(it.value); }},
    {"success", [](const Node& node, Answer* it) { Read(node, &it->value); },
     [](const Answer& it, Json* json) { *json = ToJson(it.value); }},
    {"error",
     [](const Node& node, Answer* it) {
       ObjectReader reader(node);
       reader("code", it->code);
       reader("message", it->message);
       reader("details", it->value);
       reader.ExpectKnownKeysOnly();
     },
     [](const Answer& it, Json* json) {
       *json = {{"code", it.code}, {"message", it.message}, {"details", ToJson(it.value)}};
     }},
    {"not_implemented", [](const Node& node, Answer*) { ReadTrue(node); },
     [](const Answer&, Json* json) { *json = true; }},
};

void Read(const Node& node, Answer* target) { ReadVariant(node, kAnswers, target); }
Json Write(const Answer& source) { return WriteVariant(source, kAnswers); }

void ExpectChannel(const Node& node, const Step& step) {
  if (step.channel.empty()) node.Fail("a \"channel\" is wanted");
}

void ReadMessage(const Node& node, Step* it) {
  ObjectReader reader(node);
  reader("channel", it->channel);
  reader("method", it->method);
  reader(it->method ? "arguments" : "value", it->value);
  reader.ExpectKnownKeysOnly();
  ExpectChannel(node, *it);
}

void WriteMessage(const Step& it, Json* json) {
  (*json)["channel"] = it.channel;
  if (it.method) (*json)["method"] = *it.method;
  (*json)[it.method ? "arguments" : "value"] = ToJson(it.value);
}

void ReadChanges(const Node& node, Step* it) {
  View scratch;
  Read(node, &scratch);
  it->changes = ToText(node.json);
}

void ReadListen(const Node& node, Step* it) {
  ObjectReader reader(node);
  reader("channel", it->channel);
  reader("answer", it->answer);
  reader.ExpectKnownKeysOnly();
  ExpectChannel(node, *it);
}

// In the order of Step::Kind.
constexpr Variant<Step> kSteps[] = {
    {"message", ReadMessage, WriteMessage},
    {"view", ReadChanges,
     [](const Step& it, Json* json) { *json = Json::parse(it.changes, nullptr, false); }},
    {"listen", ReadListen,
     [](const Step& it, Json* json) {
       *json = {{"channel", it.channel}, {"answer", Write(it.answer)}};
     }},
    {"cease", [](const Node& node, Step* it) { Read(node, &it->channel); },
     [](const Step& it, Json* json) { *json = it.channel; }},
    {"destroy_engine", [](const Node& node, Step*) { ReadTrue(node); },
     [](const Step&, Json* json) { *json = true; }},
    {"exit",
     [](const Node& node, Step* it) {
       Read(node, &it->exit_code, Limits{0, 255});
     },
     [](const Step& it, Json* json) { *json = it.exit_code; }},
};

void Read(const Node& node, Step* target) { ReadVariant(node, kSteps, target); }
Json Write(const Step& source) { return WriteVariant(source, kSteps); }

// ---- The whole ----

// "line 3, column 7: syntax error ..." of the library's longer text.
Json ParseJson(const std::string& text) {
  try {
    return Json::parse(text);
  } catch (const Json::parse_error& error) {
    const std::string what = error.what();
    const size_t place = what.find("line ");
    throw std::runtime_error(place == std::string::npos ? what : what.substr(place));
  }
}

template <typename T>
T ParseObject(const std::string& text, T target) {
  const Json json = ParseJson(text);
  ReadObject({json, ""}, &target);
  return target;
}

}  // namespace

Description ParseDescription(const std::string& text) { return ParseObject(text, Description()); }

void ChangeView(const std::string& changes, View* view) { *view = ParseObject(changes, *view); }

std::string ToText(const Description& description) {
  Json json = WriteObject(description);
  json["offered"] = DescribeOffer(description);
  return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace desk
