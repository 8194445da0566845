// The border between C++ and the C interface: what must hold at every entry and callback.
//
// Threads: any.
// Errors:  a stray exception ends here as one error line; NullTextError alone passes FenceEntry.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <type_traits>

#include "forge/fence.h"
#include "forge/forge_capi.h"

namespace tavo::details {

// A null text where the C header leaves it to the caller to give one.
class NullTextError : public std::logic_error {
 public:
  NullTextError() : std::logic_error("basic_string: construction from null is not valid") {}
};

inline std::string_view RequireText(const char* text) {
  if (!text) throw NullTextError();
  return text;
}

using forge::Fence;

// The fence of an entry that returns a result, which is `failure` after a stray exception.
template <typename Body>
ForgeResult FenceEntry(const char* place, ForgeResult failure, Body&& body) {
  try {
    return body();
  } catch (const NullTextError&) {
    throw;
  } catch (...) {
    forge::details::ReportStrayException(place);
    return failure;
  }
}

// What `create` makes, or null when it fails; the caller reports that in its own words.
template <typename Create>
std::invoke_result_t<Create> CreateOrNull(Create&& create) noexcept {
  try {
    return create();
  } catch (...) {
    return nullptr;
  }
}

// How many bytes of a structure of the C interface count when its declared size is `size`: whole
// fields only, and each field of these structures takes the room of a pointer.
template <typename Structure>
std::size_t CoveredBytes(uint32_t size) {
  return std::min<std::size_t>(size, sizeof(Structure)) / sizeof(void*) * sizeof(void*);
}

// Fills the caller's table, of `size` declared bytes, from the full one.
template <typename Table>
ForgeResult FillTable(Table* table, uint32_t size, const Table& full) {
  constexpr std::size_t kFirstEntry =
      sizeof(void*);  // After the size and, on 64 bits, its padding.
  std::memset(static_cast<void*>(table), 0, size);
  table->size = size;
  const std::size_t covered = CoveredBytes<Table>(size);
  if (covered > kFirstEntry) {
    std::memcpy(reinterpret_cast<char*>(table) + kFirstEntry,
                reinterpret_cast<const char*>(&full) + kFirstEntry, covered - kFirstEntry);
  }
  return FORGE_RESULT_OK;
}

// A full copy of the caller's slots: what their declared size does not cover is null, as is
// everything when there are no slots.
template <typename Slots>
Slots CopySlots(const Slots* slots) {
  Slots copy{};
  if (slots) std::memcpy(static_cast<void*>(&copy), slots, CoveredBytes<Slots>(slots->size));
  return copy;
}

}  // namespace tavo::details
