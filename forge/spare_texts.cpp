#include "forge/spare_texts.h"

#include <algorithm>
#include <utility>

namespace forge {

SpareTexts& SpareTexts::Get() {
  static auto& texts = *new SpareTexts;
  return texts;
}

std::string SpareTexts::Take(std::size_t size) {
  if (size < kMinKept || size > kMaxKept) return {};
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(kept_.begin(), kept_.end(), [size](const std::string& text) {
    return text.capacity() >= size && text.capacity() / kMaxSurplus <= size;
  });
  return found == kept_.end() ? std::string() : std::exchange(*found, {});
}

void SpareTexts::Keep(std::string&& text) noexcept {
  if (text.capacity() < kMinKept || text.capacity() > kMaxKept) return;
  const std::lock_guard lock(mutex_);
  const auto smallest = std::min_element(
      kept_.begin(), kept_.end(),
      [](const std::string& a, const std::string& b) { return a.capacity() < b.capacity(); });
  if (smallest->capacity() < text.capacity()) smallest->swap(text);
}

}  // namespace forge
