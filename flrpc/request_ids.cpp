#include "flrpc/request_ids.h"

#include <charconv>
#include <chrono>
#include <exception>
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

RequestIds& RequestIds::Get() {
  static auto& ids = *new RequestIds;
  return ids;
}

RequestIds::RequestIds() : prefix_(MakePrefix()) {}

uint64_t RequestIds::Draw() {
  const std::lock_guard lock(mutex_);
  open_.insert(drawn_ + 1);
  return ++drawn_;
}

void RequestIds::Finish(uint64_t number) noexcept {
  const std::lock_guard lock(mutex_);
  open_.erase(number);
}

Message::ID RequestIds::IdOf(uint64_t number) const {
  return Message::ID(prefix_ + std::to_string(number));
}

bool RequestIds::IsFinished(const Message::ID& id) const {
  const auto counter = CounterOf(id);
  if (!counter) return false;
  const std::lock_guard lock(mutex_);
  return *counter <= drawn_ && open_.count(*counter) == 0;
}

size_t RequestIds::CountOpen() const {
  const std::lock_guard lock(mutex_);
  return open_.size();
}

// Only as IdOf writes it.
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
