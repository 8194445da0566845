#include "trace/conversation.h"

#include <unistd.h>

#include "trace/json_text.h"

namespace trace {
namespace {

std::string MakeConnection() {
  static std::atomic<unsigned> counter{0};
  // The letter tells it from a connection that the desk has recorded.
  return ",\"connection\":\"" + std::to_string(getpid()) + ".t" +
         std::to_string(counter.fetch_add(1) + 1) + '"';
}

// Of the two processes only this one is known.
std::string MakeMembers(const char* process, std::string_view task) {
  std::string members = "\"" + std::string(process) + "\":" + std::to_string(getpid());
  members.append(",\"task\":");
  AppendJsonText(&members, task);
  return members;
}

}  // namespace

Conversation::Conversation(Record& record, End end, std::string_view task)
    : record_(record),
      is_starter_(end == End::kStarter),
      messages_('{' + MakeMembers(is_starter_ ? "pid" : "peer", task) + MakeConnection()),
      events_(MakeMembers(is_starter_ ? "starter" : "pid", task)) {}

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
