#include "tools/proxy_methods.h"

namespace tools {
namespace {

constexpr size_t kOverhead = 128;  // Of a short request in the containers.

size_t SizeOf(const std::string& key, const std::string& method) {
  return key.size() + method.size() + kOverhead;
}

}  // namespace

void RequestMethods::Take(Entry* entry) {
  if (entry->kind == Entry::Kind::kRequest) return Add(*entry);
  if (entry->kind != Entry::Kind::kResponse) return;
  const auto request = methods_.find((entry->direction == "to" ? "from " : "to ") + entry->id);
  if (request != methods_.end()) entry->method = request->second;
}

void RequestMethods::Add(const Entry& request) {
  const auto [kept, is_new] = methods_.try_emplace(request.direction + ' ' + request.id);
  auto& [key, method] = *kept;
  if (is_new) by_age_.push_back(kept);
  if (!is_new) size_ -= SizeOf(key, method);
  method = request.method;
  size_ += SizeOf(key, method);
  while (size_ > kMaxSize) {
    const auto oldest = by_age_.front();
    size_ -= SizeOf(oldest->first, oldest->second);
    methods_.erase(oldest);
    by_age_.pop_front();
  }
}

}  // namespace tools
