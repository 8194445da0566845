#include "tools/mock_description.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "cw/map_access.h"
#include "tools/json_argument.h"
#include "tools/tavo_commands.h"
#include "tools/value_path.h"

namespace tools {
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

constexpr char kSchedule[] = "$schedule";
constexpr std::string_view kParams = "$params";
constexpr double kMaxSeconds = 1'000'000;

// What repeated notifications bring in a second, all together. A starter should be able to read it.
constexpr double kMaxRate = 10'000;
constexpr double kMaxByteRate = 16 << 20;

// ---- References to the parameters ----

bool IsReference(std::string_view text) {
  if (text.substr(0, kParams.size()) != kParams) return false;
  return text.size() == kParams.size() || text[kParams.size()] == '.' ||
         text[kParams.size()] == '[';
}

// Without its first $, a reference is a path.
ValuePath ReadReference(std::string_view text) {
  ValuePath path = ParsePath(text.substr(1));
  const auto is_any = [](const PathStep& step) { return step.kind == PathStep::Kind::kAny; };
  if (std::any_of(path.begin(), path.end(), is_any)) {
    throw std::runtime_error('"' + std::string(text) + "\": * stands for no single value");
  }
  return path;
}

// A reference behind further dollar signs stands for itself with one of them less.
bool IsQuotedReference(const std::string& text) {
  const size_t name = text.find_first_not_of('$');
  return name != std::string::npos && name > 1 && IsReference(text.substr(name - 1));
}

EncodableValue FillInText(const std::string& text, const EncodableValue& params) {
  if (IsQuotedReference(text)) return text.substr(1);
  if (!IsReference(text)) return text;
  const EncodableValue* part = FindPart(params, ReadReference(text), 1);
  if (!part) throw std::runtime_error(text.substr(1) + " is missing");
  return *part;
}

void CheckReferences(const EncodableValue& value) {
  if (const auto* text = value.GetIf<std::string>()) {
    if (IsReference(*text)) ReadReference(*text);
  } else if (const auto* list = value.GetIf<EncodableList>()) {
    for (const EncodableValue& element : *list) CheckReferences(element);
  } else if (const auto* map = value.GetIf<EncodableMap>()) {
    for (const auto& [key, element] : *map) CheckReferences(element);
  }
}

// ---- The parts of a description ----

struct Part {
  [[noreturn]] void Fail(const std::string& what) const {
    throw std::runtime_error(ToText(place) + ": " + what);
  }

  template <typename T>
  const T& Expect(const char* what) const {
    const T* held = value.GetIf<T>();
    if (!held) Fail(std::string(what) + " is wanted");
    return *held;
  }

  Part At(const EncodableValue& key, const EncodableValue& part) const {
    Part inner{part, place};
    inner.place.push_back(StepTo(key));
    return inner;
  }

  std::optional<Part> Find(const char* name) const {
    const EncodableValue* part = cw::Find(&value, name);
    return part ? std::optional<Part>(At(name, *part)) : std::nullopt;
  }

  Part Get(const char* name) const {
    const auto part = Find(name);
    if (!part) Fail("\"" + std::string(name) + "\" is missing");
    return *part;
  }

  void ExpectObject(std::initializer_list<std::string_view> names) const {
    for (const auto& [key, part] : Expect<EncodableMap>("an object")) {
      const auto* name = key.GetIf<std::string>();
      if (!name || std::find(names.begin(), names.end(), *name) == names.end()) {
        At(key, part).Fail("there is no such key");
      }
    }
  }

  std::vector<Part> ExpectList() const {
    std::vector<Part> parts;
    for (const EncodableValue& element : Expect<EncodableList>("an array")) {
      parts.push_back(At(static_cast<int32_t>(parts.size()), element));
    }
    return parts;
  }

  const EncodableValue& value;
  ValuePath place;
};

EncodableValue ReadTemplate(const Part& part) {
  try {
    CheckReferences(part.value);
  } catch (const std::runtime_error& error) {
    part.Fail(error.what());
  }
  return part.value;
}

// Seconds, or a text of a number and its unit.
MockTime ReadTime(const Part& part) {
  constexpr struct {
    std::string_view name;
    double seconds;
  } kUnits[] = {{"ms", 0.001}, {"s", 1}, {"min", 60}};
  double number = -1;
  std::string_view unit = "s";
  if (const auto* integer = part.value.GetIf<int32_t>()) number = *integer;
  if (const auto* real = part.value.GetIf<double>()) number = *real;
  if (const auto* text = part.value.GetIf<std::string>()) {
    const char* const end = text->data() + text->size();
    const auto result = std::from_chars(text->data(), end, number);
    if (result.ec != std::errc()) number = -1;
    unit = std::string_view(result.ptr, static_cast<size_t>(end - result.ptr));
  }
  for (const auto& known : kUnits) {
    const double seconds = number * known.seconds;
    if (unit != known.name || !(seconds >= 0 && seconds <= kMaxSeconds)) continue;
    return std::chrono::duration_cast<MockTime>(std::chrono::duration<double>(seconds));
  }
  part.Fail(R"(seconds, or a text such as "200ms", "1s" or "2min", is wanted)");
}

std::string ReadName(const Part& part) {
  const auto& name = part.Expect<std::string>("a text");
  if (name.empty()) part.Fail("an empty text is no name");
  return name;
}

MockNotification ReadNotification(const Part& part, bool may_repeat) {
  if (may_repeat) part.ExpectObject({"method", "params", "after", "every"});
  if (!may_repeat) part.ExpectObject({"method", "params", "after"});
  MockNotification notification;
  notification.method = ReadName(part.Get("method"));
  if (const auto params = part.Find("params")) {  // Of a schedule, there is nothing to refer to.
    notification.params = may_repeat ? params->value : ReadTemplate(*params);
  }
  if (const auto after = part.Find("after")) notification.after = ReadTime(*after);
  if (const auto every = part.Find("every")) {
    notification.every = ReadTime(*every);
    if (*notification.every < std::chrono::milliseconds(1)) every->Fail("1 ms is the least");
  }
  return notification;
}

std::vector<MockNotification> ReadNotifications(const std::optional<Part>& part, bool may_repeat) {
  std::vector<MockNotification> notifications;
  if (!part) return notifications;
  for (const Part& element : part->ExpectList()) {
    notifications.push_back(ReadNotification(element, may_repeat));
  }
  return notifications;
}

std::vector<MockNotification> ReadSchedule(const Part& part) {
  std::vector<MockNotification> schedule = ReadNotifications(part, true);
  double rate = 0;
  double byte_rate = 0;
  for (const MockNotification& notification : schedule) {
    if (!notification.every) continue;
    const size_t size = notification.method.size() + notification.params.Serialize().GetSize();
    const double own_rate = 1 / std::chrono::duration<double>(*notification.every).count();
    rate += own_rate;
    byte_rate += own_rate * static_cast<double>(size);
  }
  const bool is_too_much = rate > kMaxRate || byte_rate > kMaxByteRate;
  if (is_too_much) part.Fail("it sends more than 10,000 messages or 16 MiB a second");
  return schedule;
}

MockMethod::Error ReadError(const Part& part) {
  part.ExpectObject({"code", "message", "data"});
  MockMethod::Error error;
  error.code = part.Get("code").Expect<int32_t>("an integer of 32 bits");
  error.message = part.Get("message").Expect<std::string>("a text");
  if (const auto data = part.Find("data")) error.data = ReadTemplate(*data);
  return error;
}

MockMethod ReadMethod(const Part& part) {
  part.ExpectObject({"result", "results", "error", "after", "notify"});
  const auto result = part.Find("result");
  const auto results = part.Find("results");
  const auto error = part.Find("error");
  if ((result ? 1 : 0) + (results ? 1 : 0) + (error ? 1 : 0) != 1) {
    part.Fail("one of \"result\", \"results\" and \"error\" is wanted");
  }
  MockMethod method;
  if (result) method.results.push_back(ReadTemplate(*result));
  if (error) method.error = ReadError(*error);
  if (results) {
    for (const Part& element : results->ExpectList()) {
      method.results.push_back(ReadTemplate(element));
    }
    if (method.results.empty()) results->Fail("one element at least is wanted");
  }
  if (const auto after = part.Find("after")) method.after = ReadTime(*after);
  method.notify = ReadNotifications(part.Find("notify"), false);
  return method;
}

MockDescription ReadDescription(const Part& whole) {
  MockDescription description;
  for (const auto& [key, value] : whole.Expect<EncodableMap>("an object")) {
    const Part part = whole.At(key, value);
    const auto* name = key.GetIf<std::string>();
    if (!name || name->empty()) part.Fail("this is no name of a method");
    if (*name == kSchedule) {
      description.schedule = ReadSchedule(part);
    } else {
      description.methods[*name] = ReadMethod(part);
    }
  }
  return description;
}

}  // namespace

MockDescription ReadMockDescription(const std::string& file) {
  const EncodableValue value = ReadValueArgument('@' + file);
  try {
    return ReadDescription({value, ParsePath("$")});
  } catch (const std::runtime_error& error) {
    throw CommandError(kWrongUsage, file + ": " + error.what());
  }
}

EncodableValue FillIn(const EncodableValue& value, const EncodableValue& params) {
  if (const auto* text = value.GetIf<std::string>()) return FillInText(*text, params);
  if (const auto* list = value.GetIf<EncodableList>()) {
    EncodableList filled;
    for (const EncodableValue& element : *list) filled.push_back(FillIn(element, params));
    return filled;
  }
  if (const auto* map = value.GetIf<EncodableMap>()) {
    EncodableMap filled;
    for (const auto& [key, element] : *map) filled[key] = FillIn(element, params);
    return filled;
  }
  return value;
}

}  // namespace tools
