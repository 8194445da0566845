#include "tools/conversation.h"

namespace tools {
namespace {

constexpr size_t kMaxKeptPayload = 4096;

std::string KeyOf(const Entry& entry, const std::string& direction) {
  std::string key = entry.connection.empty() ? "task " + entry.task : entry.connection;
  for (const std::string* part : {&direction, &entry.id}) key.append(1, '\0').append(*part);
  return key;
}

}  // namespace

uint64_t Conversation::Take(uint64_t number, Clock::time_point seen, Entry* entry) {
  if (entry->kind == Entry::Kind::kEvent && entry->event == "dropped" && entry->task_pid) {
    ForgetRequestsOf(*entry->task_pid);
  }
  if (entry->kind == Entry::Kind::kRequest) AddRequest(number, seen, *entry);
  if (entry->kind != Entry::Kind::kResponse) return kNone;
  const std::string key = KeyOf(*entry, entry->direction == "to" ? "from" : "to");
  const auto found = by_key_.lower_bound(key);  // The oldest of this identifier.
  if (found == by_key_.end() || found->first != key) return kNone;
  const auto waiting = waiting_.find(found->second);
  entry->method = waiting->second.request.method;
  entry->latency = GetTimeBetween(waiting->second.request, *entry);
  const uint64_t answered = waiting->second.number;
  waiting_.erase(waiting);
  by_key_.erase(found);
  return answered;
}

void Conversation::ForgetRequestsOf(int64_t starter_pid) {
  for (auto next = waiting_.begin(); next != waiting_.end();) {
    const auto waiting = next++;
    if (waiting->second.request.starter_pid != starter_pid) continue;
    by_key_.erase(waiting->second.key);
    waiting_.erase(waiting);
  }
}

void Conversation::AddRequest(uint64_t number, Clock::time_point seen, const Entry& entry) {
  if (waiting_.size() == kMaxWaiting) {
    by_key_.erase(waiting_.begin()->second.key);
    waiting_.erase(waiting_.begin());
    ++forgotten_;
  }
  Waiting waiting{number, seen, entry, by_key_.emplace(KeyOf(entry, entry.direction), next_)};
  if (waiting.request.payload.size() > kMaxKeptPayload) {
    waiting.request.payload.resize(kMaxKeptPayload);
    waiting.request.payload.shrink_to_fit();
  }
  waiting_.emplace(next_++, std::move(waiting));
}

std::vector<Conversation::Unanswered> Conversation::TakeLate(Clock::time_point begin) {
  std::vector<Unanswered> late;
  auto next = waiting_.lower_bound(first_in_time_);
  for (; next != waiting_.end() && next->second.seen <= begin; ++next) {
    late.push_back({next->second.request, next->second.seen});
    first_in_time_ = next->first + 1;
  }
  return late;
}

std::vector<Conversation::Unanswered> Conversation::GetUnanswered() const {
  std::vector<Unanswered> unanswered;
  for (const auto& [order, waiting] : waiting_)
    unanswered.push_back({waiting.request, waiting.seen});
  return unanswered;
}

}  // namespace tools
