#include "flrpc/request_ids.h"

#include <charconv>
#include <chrono>
#include <exception>
#include <iterator>
#include <random>
#include <string_view>

namespace flrpc::details {
namespace {

// Where there is no random device the time will do: the number only has to differ.
unsigned Seed() {
  try {
    return std::random_device("default")();
  } catch (const std::exception&) {
    return static_cast<unsigned>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
}

std::string MakePrefix() {
  std::mt19937 random(Seed());
  return "id" + std::to_string(std::uniform_int_distribution<int>(1, 1000)(random)) + "_";
}

}  // namespace

void IntervalSet::Insert(uint64_t number) {
  const auto next = ends_.upper_bound(number);
  const auto before = next == ends_.begin() ? ends_.end() : std::prev(next);
  if (before != ends_.end() && number <= before->second) return;
  const bool joins_before = before != ends_.end() && before->second + 1 == number;
  const bool joins_next = next != ends_.end() && number + 1 == next->first;
  const uint64_t last = joins_next ? next->second : number;
  if (joins_next) ends_.erase(next);
  if (joins_before) {
    before->second = last;
  } else {
    ends_.emplace(number, last);
  }
}

bool IntervalSet::Contains(uint64_t number) const {
  const auto next = ends_.upper_bound(number);
  return next != ends_.begin() && number <= std::prev(next)->second;
}

RequestIds& RequestIds::Get() {
  static auto& ids = *new RequestIds;
  return ids;
}

RequestIds::RequestIds() : prefix_(MakePrefix()) {}

Message::ID RequestIds::Draw() { return Message::ID(prefix_ + std::to_string(++drawn_)); }

void RequestIds::Finish(const Message::ID& id) {
  const auto counter = CounterOf(id);
  if (!counter) return;
  const std::lock_guard lock(mutex_);
  finished_.Insert(*counter);
}

bool RequestIds::IsFinished(const Message::ID& id) const {
  const auto counter = CounterOf(id);
  if (!counter) return false;
  const std::lock_guard lock(mutex_);
  return finished_.Contains(*counter);
}

size_t RequestIds::CountIntervals() const {
  const std::lock_guard lock(mutex_);
  return finished_.CountIntervals();
}

// Only as Draw writes it.
std::optional<uint64_t> RequestIds::CounterOf(const Message::ID& id) const {
  const std::string_view text = id.GetText();
  if (text.substr(0, prefix_.size()) != prefix_) return std::nullopt;
  const char* const first = text.data() + prefix_.size();
  const char* const last = text.data() + text.size();
  uint64_t counter = 0;
  const auto [end, error] = std::from_chars(first, last, counter);
  if (error != std::errc() || end != last || *first == '0') return std::nullopt;
  return counter;
}

}  // namespace flrpc::details
