#include "flrpc/request_ids.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <exception>
#include <new>
#include <random>
#include <string_view>

namespace flrpc::details {
namespace {

// Without a random device the time is good enough: the number only has to differ.
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

Message::ID RequestIds::IdOf(uint64_t number) const {
  return Message::ID(prefix_ + std::to_string(number));
}

std::optional<uint64_t> RequestIds::NumberOf(const Message::ID& id) const {
  const std::string_view text = id.GetText();
  if (text.substr(0, prefix_.size()) != prefix_) return std::nullopt;
  const char* const first = text.data() + prefix_.size();
  const char* const last = text.data() + text.size();
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(first, last, number);
  if (error != std::errc() || end != last || *first == '0') return std::nullopt;
  return number;
}

void AnsweredRequests::Add(uint64_t number) noexcept {
  if (!runs_.empty() && runs_.back().last + 1 == number) {
    runs_.back().last = number;
  } else {
    try {
      runs_.push_back({number, number});
    } catch (const std::bad_alloc&) {
      return Forget(number);
    }
  }
  if (++remembered_ <= kMaxRemembered) return;
  --remembered_;
  Run& oldest = runs_.front();
  Forget(oldest.first++);
  if (oldest.first > oldest.last) runs_.pop_front();
}

void AnsweredRequests::Forget(uint64_t number) { forgotten_ = std::max(forgotten_, number); }

bool AnsweredRequests::Contains(uint64_t number) const {
  if (number <= forgotten_) return true;
  return std::any_of(runs_.begin(), runs_.end(), [number](const Run& run) {
    return run.first <= number && number <= run.last;
  });
}

}  // namespace flrpc::details
