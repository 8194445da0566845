#include "tools/traffic.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <tuple>

#include "cw/encodable_value.h"
#include "cw/map_access.h"
#include "desk/common/json_text.h"
#include "desk/common/value_json.h"
#include "flrpc/message.h"
#include "forge/buffer.h"
#include "tools/records.h"

namespace tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kMaxName = 256;  // Of what is kept: names, connections, identifiers.

std::string TextOf(const Json& entry, const char* key) {
  const auto member = entry.find(key);
  return member != entry.end() && member->is_string() ? member->get<std::string>() : "";
}

std::string NameOf(const Json& entry, const char* key) {
  return TextOf(entry, key).substr(0, kMaxName);
}

int64_t NumberOf(const Json& entry, const char* key) {
  const auto member = entry.find(key);
  return member != entry.end() && member->is_number_integer() ? member->get<int64_t>() : 0;
}

int ProcessOf(const Json& entry, const char* key) {
  const int64_t number = NumberOf(entry, key);
  return number > 0 && number <= std::numeric_limits<int>::max() ? static_cast<int>(number) : 0;
}

// flrpc::Message would tell of a malformed message on standard output, among the figures.
RpcHead Decode(const std::string& text) try {
  const auto value = DecodeValue(text);
  const cw::EncodableValue* const id = cw::Find(&value, "id");
  if (!id) return {};
  const auto identifier = flrpc::Message::ID::FromEncodable(*id);
  return {identifier ? identifier->GetText() : "", cw::Find(&value, "method") != nullptr};
} catch (const std::runtime_error&) {  // What cannot be decoded is no call.
  return {};
}

// The texts of the members that come first in the bytes of a map.
class HeadReader {
 public:
  explicit HeadReader(const std::string& text) : bytes_(forge::Buffer::FromBase64(text)) {
    constexpr uint8_t kMap = 0x0d;
    is_map_ = bytes_.GetSize() > at_ && bytes_.GetData()[0] == kMap;
  }

  // Returns nothing when there is no text, or only a part of it.
  std::optional<std::string> ReadText() {
    constexpr uint8_t kText = 0x07;
    constexpr uint8_t kMaxShort = 0xfd;  // Longer texts are no identifiers or methods.
    const uint8_t* const data = bytes_.GetData();
    if (!is_map_ || at_ + 2 > bytes_.GetSize() || data[at_] != kText) return {};
    const size_t size = data[at_ + 1];
    if (size > kMaxShort || at_ + 2 + size > bytes_.GetSize()) return {};
    const auto* const begin = reinterpret_cast<const char*>(data + at_ + 2);
    at_ += 2 + size;
    return std::string(begin, size);
  }

 private:
  const forge::Buffer bytes_;
  bool is_map_ = false;
  size_t at_ = 2;  // Behind the map's tag and its size.
};

// The same, when only the beginning of the message is known.
RpcHead DecodeHead(const std::string& text) {
  RpcHead head;
  HeadReader reader(text);
  while (const auto key = reader.ReadText()) {
    const auto value = reader.ReadText();
    if (!value) break;
    if (*key == "id") head.id = *value;
    if (*key == "method") head.has_method = true;
  }
  return head;
}

}  // namespace

bool TrafficKey::operator<(const TrafficKey& other) const {
  return std::tie(task, starter, pid) < std::tie(other.task, other.starter, other.pid);
}

void Traffic::Take(const std::string& line) try {
  const Json entry = desk::ParseJson(line);
  if (!entry.is_object()) return;
  const std::string event = TextOf(entry, "event");
  if (!event.empty()) {
    TakeEvent(entry, event);
  } else if (entry.contains("message")) {
    TakeMessage(entry);
  }
} catch (const std::exception&) {
  // What cannot be decoded counts as nothing.
}

void Traffic::TakeEvent(const Json& entry, const std::string& event) {
  if (event == "dropped") {  // Answers may be among what is missing.
    dropped_ += static_cast<uint64_t>(std::max<int64_t>(NumberOf(entry, "count"), 0));
    const int starter = ProcessOf(entry, "pid");
    for (auto& [key, task] : tasks_) {
      if (key.starter == starter) task.in_flight.clear();
    }
    return;
  }
  const TrafficKey key{NameOf(entry, "task"), ProcessOf(entry, "starter"), ProcessOf(entry, "pid")};
  if (event == "start" || event == "running") Find(key);
  if (event == "end" || event == "loss") Forget(key);
}

void Traffic::TakeMessage(const Json& entry) {
  TaskTraffic* const task =
      Find({NameOf(entry, "task"), ProcessOf(entry, "pid"), ProcessOf(entry, "peer")});
  if (!task) return;
  const Json& message = entry.at("message");
  if (message.is_object()) {
    task->bytes += desk::ToText(message).size();
    Count(entry, Decode(TextOf(message, "data")), task);
  } else {  // It was too large.
    task->bytes += static_cast<uint64_t>(std::max<int64_t>(NumberOf(entry, "size"), 0));
    Count(entry, DecodeHead(TextOf(entry, "head")), task);
  }
}

void Traffic::Count(const Json& entry, const RpcHead& head, TaskTraffic* task) {
  if (head.id.empty() || head.id.size() > kMaxName) return;
  const int64_t time = NumberOf(entry, "monotonic");
  const bool is_asked_of_task = (TextOf(entry, "direction") == "to") == head.has_method;
  const std::string call =
      NameOf(entry, "connection") + (is_asked_of_task ? " > " : " < ") + head.id;
  if (head.has_method) {
    ++task->calls;
    if (task->in_flight.size() < kMaxInFlight) task->in_flight[call] = time;
    return;
  }
  const auto asked = task->in_flight.find(call);
  if (asked == task->in_flight.end()) return;
  const bool is_timed = time > 0 && asked->second > 0;
  if (is_timed && task->latencies.size() < kMaxLatencies) {
    task->latencies.push_back(time - asked->second);
  }
  task->in_flight.erase(asked);
}

// Returns null for a task more than can be kept.
TaskTraffic* Traffic::Find(const TrafficKey& key) {
  const auto found = tasks_.find(key);
  if (found != tasks_.end()) return &found->second;
  return tasks_.size() < kMaxTasks ? &tasks_[key] : nullptr;
}

void Traffic::Restart() {
  dropped_ = 0;
  for (auto& [key, task] : tasks_) {
    task.calls = 0;
    task.bytes = 0;
    task.latencies.clear();
  }
}

}  // namespace tools
