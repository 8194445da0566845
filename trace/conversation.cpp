#include "trace/conversation.h"

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>

#include "trace/json_text.h"

namespace trace {
namespace {

// The letter tells it from a connection that the desk has recorded. The time is there since a later
// process with the same number may append to the file.
std::string MakeConnection() {
  using Clock = std::chrono::system_clock;
  static const auto time = static_cast<uint32_t>(Clock::now().time_since_epoch().count());
  static std::atomic<unsigned> counter{0};
  char text[64];
  std::snprintf(text, sizeof text, "%d.t%08x.%u", getpid(), time, counter.fetch_add(1) + 1);
  return text;
}

// Of the two processes only this one is known.
std::string MakeMembers(const char* process, std::string_view task, std::string_view connection) {
  std::string members = "\"" + std::string(process) + "\":" + std::to_string(getpid());
  members.append(",\"task\":");
  AppendJsonText(&members, task);
  return members.append(",\"connection\":\"").append(connection).append(1, '"');
}

}  // namespace

Conversation::Conversation(Record& record, End end, std::string_view task)
    : record_(record),
      is_starter_(end == End::kStarter),
      connection_(MakeConnection()),
      messages_('{' + MakeMembers(is_starter_ ? "pid" : "peer", task, connection_)),
      events_(MakeMembers(is_starter_ ? "starter" : "pid", task, connection_)) {}

void Conversation::Start() noexcept {
  if (!is_open_.exchange(true)) record_.AddEvent("start", events_, nullptr);
}

void Conversation::Fail(const char* cause) noexcept { record_.AddEvent("failure", events_, cause); }

void Conversation::Stop() noexcept {
  if (is_open_.exchange(false)) record_.AddEvent("end", events_, nullptr);
}

void Conversation::ToPeer(const char* text) noexcept { Add(is_starter_ ? "to" : "from", text); }

void Conversation::FromPeer(const char* text) noexcept { Add(is_starter_ ? "from" : "to", text); }

void Conversation::Add(const char* direction, const char* text) noexcept {
  if (text) record_.AddMessage(messages_, direction, text);
}

}  // namespace trace
