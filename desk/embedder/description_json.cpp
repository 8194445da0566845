// The description in JSON.
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

#include "desk/common/json_fields.h"
#include "desk/common/json_text.h"
#include "desk/common/value_json.h"
#include "desk/embedder/description.h"
#include "desk/embedder/offer.h"

namespace desk {

namespace {

constexpr Limits kDegrees{0, 270, 90};
constexpr Limits kMilliseconds{0, 3600000};
constexpr Limits kInformationKinds{1, 3};
constexpr Limits kDirectoryKinds{1, 23};

template <typename T>
void ReadObject(const Node& node, T* target);
template <typename T>
Json WriteObject(const T& source);

}  // namespace

// The structures that are parts of others. They are not in the unnamed namespace, because
// json_fields.h finds them by their arguments.
static void Read(const Node& node, Answer* target);
static void Read(const Node& node, Step* target);
static void Read(const Node& node, Theme* target) { ReadObject(node, target); }
static void Read(const Node& node, View* target) { ReadObject(node, target); }
static void Read(const Node& node, WindowResult* target) { ReadObject(node, target); }
static void Read(const Node& node, DeclaredSizes* target) { ReadObject(node, target); }
static Json Write(const Answer& source);
static Json Write(const Step& source);
static Json Write(const Theme& source) { return WriteObject(source); }
static Json Write(const View& source) { return WriteObject(source); }
static Json Write(const WindowResult& source) { return WriteObject(source); }
static Json Write(const DeclaredSizes& source) { return WriteObject(source); }

namespace {

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
    archive("pixel_ratio", it.pixel_ratio, Limits{0.1, 1000});
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
    const Limits limits{0, kMaxDeclared};
    archive("context", it.context, limits);
    archive("application", it.application, limits);
    archive("view", it.view, limits);
    archive("texture", it.texture, limits);
    archive("messenger", it.messenger, limits);
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
    archive("render_thread", it.render_thread);
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
  const std::string& key = node.json.begin().key();
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
    {"bytes", [](const Node& node, Answer* it) { Read(node, &it->bytes); },
     [](const Answer& it, Json* json) { *json = Write(it.bytes); }},
};

}  // namespace

static void Read(const Node& node, Answer* target) { ReadVariant(node, kAnswers, target); }
static Json Write(const Answer& source) { return WriteVariant(source, kAnswers); }

namespace {

void ExpectChannel(const Node& node, const Step& step) {
  if (step.channel.empty()) node.Fail("a \"channel\" is wanted");
}

void ReadMessage(const Node& node, Step* it) {
  ObjectReader reader(node);
  reader("channel", it->channel);
  reader("method", it->method);
  if (!it->method) reader("bytes", it->bytes);
  if (!it->bytes) reader(it->method ? "arguments" : "value", it->value);
  reader("timeout", it->timeout, kMilliseconds);
  reader.ExpectKnownKeysOnly();
  ExpectChannel(node, *it);
}

void WriteMessage(const Step& it, Json* json) {
  ObjectWriter writer;
  writer("channel", it.channel);
  writer("method", it.method);
  writer("bytes", it.bytes);
  writer(it.method ? "arguments" : "value", it.value);
  writer("timeout", it.timeout);
  *json = writer.Take();
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
    {"expect", ReadMessage, WriteMessage},
    {"wait", [](const Node& node, Step* it) { Read(node, &it->pause, kMilliseconds); },
     [](const Step& it, Json* json) { *json = it.pause; }},
    {"view", ReadChanges,
     [](const Step& it, Json* json) { *json = Json::parse(it.changes, nullptr, false); }},
    {"listen", ReadListen,
     [](const Step& it, Json* json) {
       *json = {{"channel", it.channel}, {"answer", Write(it.answer)}};
     }},
    {"cease",
     [](const Node& node, Step* it) {
       Read(node, &it->channel);
       ExpectChannel(node, *it);
     },
     [](const Step& it, Json* json) { *json = it.channel; }},
    {"destroy_engine", [](const Node& node, Step*) { ReadTrue(node); },
     [](const Step&, Json* json) { *json = true; }},
    {"exit",
     [](const Node& node, Step* it) {
       Read(node, &it->exit_code, Limits{0, 255});
     },
     [](const Step& it, Json* json) { *json = it.exit_code; }},
};

}  // namespace

static void Read(const Node& node, Step* target) { ReadVariant(node, kSteps, target); }
static Json Write(const Step& source) { return WriteVariant(source, kSteps); }

namespace {

// ---- The whole ----

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
