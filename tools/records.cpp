#include "tools/records.h"

#include <ctime>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <streambuf>
#include <utility>

#include "cw/admission.h"
#include "forge/buffer.h"
#include "tools/line_source.h"
#include "tools/message_of.h"

namespace tools {
namespace {

constexpr auto kSmall = desk::SmallInt64::kPlain;

using cw::EncodableValue;
using Members = nlohmann::json;  // Finds a member of a large object quickly.
using flrpc::Message;

constexpr int kMaxJsonDepth = 1024;
constexpr size_t kMaxJsonValues = 1 << 20;  // The desk itself takes fewer in a line.
constexpr size_t kMaxText = 4096;           // Of each text but the payload: many are kept.

// ---- Members of an entry ----

Members ParseJson(const std::string& text) {
  if (text.size() > kMaxLine) throw std::runtime_error("it is longer than 64 MiB");
  size_t values = 0;
  // A result of false would only leave the value out and read on.
  const auto check = [&values](int depth, Members::parse_event_t, Members&) {
    if (depth > kMaxJsonDepth) throw std::runtime_error("it is nested too deeply");
    if (++values > kMaxJsonValues) throw std::runtime_error("it holds too many values");
    return true;
  };
  Members members = Members::parse(text, check, false);
  if (members.is_discarded()) throw std::runtime_error("it is not JSON");
  return members;
}

std::string Dump(const Members& members) {
  return members.dump(-1, ' ', false, Members::error_handler_t::replace);
}

std::string TextOf(const Members& members, const char* key) {
  const auto member = members.find(key);
  return member != members.end() && member->is_string() ? member->get<std::string>() : "";
}

std::string ExpectText(const Members& members, const char* key) {
  const auto member = members.find(key);
  if (member != members.end() && member->is_string()) return member->get<std::string>();
  throw std::runtime_error("it has no text \"" + std::string(key) + '"');
}

std::optional<int64_t> IntegerOf(const Members& members, const char* key) {
  const auto member = members.find(key);
  if (member == members.end() || !member->is_number_integer()) return std::nullopt;
  const auto number = member->get<int64_t>();
  if (member->is_number_unsigned() && number < 0) return std::nullopt;  // It does not fit.
  return number;
}

// "2026-11-21T10:22:52.428Z" in microseconds since 1970.
std::optional<int64_t> ReadTime(const std::string& text) {
  std::tm parts{};
  const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
  if (rest == nullptr) return std::nullopt;
  const time_t seconds = timegm(&parts);
  if (seconds == -1) return std::nullopt;
  int64_t microseconds = int64_t{seconds} * 1000000;
  int64_t unit = *rest == '.' ? 100000 : 0;
  for (; unit > 0 && *++rest >= '0' && *rest <= '9'; unit /= 10) {
    microseconds += (*rest - '0') * unit;
  }
  return microseconds;
}

// ---- Frames ----

void SetError(const Message::Error& error, Entry* entry) {
  entry->is_error = true;
  entry->words = "error " + std::to_string(error.code) + ": " + error.message;
  desk::Json json = {{"code", error.code}, {"message", error.message}};
  if (!error.data.IsNull()) {
    json["data"] = desk::ToJson(error.data, kSmall);
    entry->words += ' ' + desk::ToText(json["data"]);
  }
  entry->payload = desk::ToText(json);
}

void SetParameters(const EncodableValue& parameters, Entry* entry) {
  if (!parameters.IsNull()) entry->payload = desk::ToText(parameters, kSmall);
}

void SetMessage(const Message& message, Entry* entry) {
  if (const auto* request = message.GetRequest()) {
    entry->kind = Entry::Kind::kRequest;
    entry->id = request->id.GetText();
    entry->method = request->method;
    SetParameters(request->params, entry);
  } else if (const auto* response = message.GetResponse()) {
    entry->kind = Entry::Kind::kResponse;
    entry->id = response->id.GetText();
    const auto* error = response->GetError();
    if (error) SetError(*error, entry);
    if (!error) entry->payload = desk::ToText(*response->GetResult(), kSmall);
  } else if (const auto* notification = message.GetNotification()) {
    entry->kind = Entry::Kind::kNotification;
    entry->method = notification->method;
    SetParameters(notification->params, entry);
  } else {
    entry->kind = Entry::Kind::kError;
    SetError(*message.GetError(), entry);
  }
}

void SetValue(const EncodableValue& value, Entry* entry) {
  entry->kind = Entry::Kind::kValue;
  entry->payload = desk::ToText(value, kSmall);
}

// Takes the lines that the decoder writes to standard error: thousands for a few damaged bytes.
class ComplaintCapture : private std::streambuf {
 public:
  ComplaintCapture() : former_(std::cerr.rdbuf(this)) {}
  ~ComplaintCapture() override { std::cerr.rdbuf(former_); }
  ComplaintCapture(const ComplaintCapture&) = delete;
  ComplaintCapture& operator=(const ComplaintCapture&) = delete;

  // Returns the first line, and how many there are if it is not the only one.
  std::string GetText() const {
    return first_ + (count_ > 1 ? " (" + std::to_string(count_) + " faults)" : "");
  }

 private:
  int_type overflow(int_type character) override {
    if (character == traits_type::eof()) return traits_type::not_eof(character);
    if (traits_type::to_char_type(character) == '\n') {
      ++count_;
    } else if (count_ == 0) {
      first_ += traits_type::to_char_type(character);
    }
    return character;
  }

  std::streambuf* const former_;
  std::string first_;
  size_t count_ = 0;
};

void ReadFrame(const Members& members, const Members& frame, Entry* entry) {
  entry->direction = ExpectText(members, "direction");
  entry->connection = TextOf(members, "connection");
  entry->starter_pid = IntegerOf(members, "pid");
  entry->task_pid = IntegerOf(members, "peer");
  if (const auto size = IntegerOf(members, "size"); size && frame.is_null()) {
    entry->words = "(a message of " + std::to_string(*size) + " bytes, which was left out)";
    return;
  }
  try {
    const EncodableValue value = DecodeValue(ExpectText(frame, "data"), &entry->fault);
    const auto message = MessageOf(value);
    message ? SetMessage(*message, entry) : SetValue(value, entry);
  } catch (const std::runtime_error& error) {
    entry->fault = error.what();
    entry->words = "(damaged: " + entry->fault + ')';
    if (frame.is_object()) entry->payload = Dump(frame);
  }
}

// ---- Other entries ----

void ReadIntent(const Members& members, Entry* entry) {
  entry->kind = Entry::Kind::kIntent;
  entry->method = ExpectText(members, "intent");
  entry->starter_pid = IntegerOf(members, "pid");
  const auto parameters = members.find("parameters");
  if (parameters != members.end()) entry->payload = Dump(*parameters);
  if (const auto size = IntegerOf(members, "size")) {
    entry->words = "(cut; it had " + std::to_string(*size) + " bytes) " + entry->payload;
  }
}

void ReadEvent(const Members& members, Entry* entry) {
  entry->kind = Entry::Kind::kEvent;
  entry->event = ExpectText(members, "event");
  entry->connection = TextOf(members, "connection");
  entry->task_pid = IntegerOf(members, "pid");
  const auto status = IntegerOf(members, "status");
  const auto signal = IntegerOf(members, "signal");
  if (entry->event == "start") {
    entry->words = "started";
  } else if (entry->event == "end" && signal) {
    entry->words = "was killed by signal " + std::to_string(*signal);
  } else if (entry->event == "end" && status) {
    entry->words = "ended with status " + std::to_string(*status);
  } else if (entry->event == "loss") {
    entry->words = "is lost: " + TextOf(members, "cause");
  } else {
    entry->words = entry->event;
    if (const auto count = IntegerOf(members, "count")) {
      entry->words += ' ' + std::to_string(*count);
    }
  }
  const auto stopped = members.find("stopped");  // By its starter.
  const bool is_stopped = stopped != members.end() && *stopped == true;
  if (is_stopped) entry->words = "stopped: it " + entry->words;
  entry->is_error = entry->event == "loss" || (!is_stopped && (signal || status.value_or(0) != 0));
  Members details = members;
  for (const char* known : {"time", "monotonic", "task", "event", "connection", "pid"}) {
    details.erase(known);
  }
  if (!details.empty()) entry->payload = Dump(details);
}

void CutTexts(Entry* entry) {
  for (std::string* text : {&entry->time, &entry->task, &entry->connection, &entry->direction,
                            &entry->id, &entry->method, &entry->event, &entry->words}) {
    if (text->size() <= kMaxText) continue;
    text->resize(kMaxText);
    text->shrink_to_fit();
  }
}

}  // namespace

EncodableValue DecodeValue(const std::string& base64, std::string* fault) {
  const auto bytes = forge::Buffer::FromBase64(base64);
  if (bytes.GetSize() == 0) throw std::runtime_error("it is not a Base64 text");
  if (const char* cause = cw::FindInadmissible(bytes.GetData(), bytes.GetSize())) {
    throw std::runtime_error(cause);
  }
  const ComplaintCapture complaints;
  EncodableValue value = EncodableValue::Deserialize(bytes);
  if (fault) *fault = complaints.GetText();
  return value;
}

std::string Entry::GetKindName() const {
  constexpr const char* kNames[] = {"request", "response",  "notification", "error",
                                    "value",   "undecoded", "intent"};
  return kind == Kind::kEvent ? event : kNames[static_cast<size_t>(kind)];
}

Entry ReadEntry(const std::string& line) {
  const Members members = ParseJson(line);
  if (!members.is_object()) throw std::runtime_error("it is not a JSON object");
  Entry entry;
  entry.time = TextOf(members, "time");
  entry.wall = ReadTime(entry.time);
  entry.monotonic = IntegerOf(members, "monotonic");
  entry.task = TextOf(members, "task");
  const auto frame = members.find("message");
  if (frame != members.end()) {
    ReadFrame(members, *frame, &entry);
  } else if (members.contains("intent")) {
    ReadIntent(members, &entry);
  } else if (members.contains("event")) {
    ReadEvent(members, &entry);
  } else {
    throw std::runtime_error("it is no entry of a record");
  }
  CutTexts(&entry);
  return entry;
}

std::optional<int64_t> GetTimeBetween(const Entry& first, const Entry& second) {
  const bool is_monotonic = first.monotonic && second.monotonic;
  const auto& begin = is_monotonic ? first.monotonic : first.wall;
  const auto& end = is_monotonic ? second.monotonic : second.wall;
  int64_t between = 0;
  if (!begin || !end || __builtin_sub_overflow(*end, *begin, &between)) return std::nullopt;
  if (between < 0) return std::nullopt;  // Somebody has set the clock.
  return between;
}

std::string ShowTime(const Entry& entry) {
  constexpr size_t kDate = 11;  // "2026-11-21T"
  constexpr size_t kTime = 12;  // "10:22:52.428"
  return entry.wall && entry.time.size() > kDate ? entry.time.substr(kDate, kTime)
                                                 : entry.time.substr(0, kTime);
}

std::string ShowTask(const Entry& entry) {
  return entry.task_pid ? entry.task + '[' + std::to_string(*entry.task_pid) + ']' : entry.task;
}

std::string ShowDuration(int64_t microseconds) {
  const auto in = [microseconds](double unit, const char* name) {
    char text[48];
    const double number = static_cast<double>(microseconds) / unit;
    std::snprintf(text, sizeof text, number < 9.95 ? "%.1f %s" : "%.0f %s", number, name);
    return std::string(text);
  };
  if (microseconds < 1000) return std::to_string(microseconds) + " us";
  if (microseconds < 1000000) return in(1e3, "ms");
  return microseconds < 600000000 ? in(1e6, "s") : in(6e7, "min");
}

const std::string& GetContent(const Entry& entry) {
  return entry.words.empty() ? entry.payload : entry.words;
}

}  // namespace tools
