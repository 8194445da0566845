// What a C table or structure offers: its first field is its declared size, `size`, in bytes.
//
//   if (!FORGE_COVERED_OR_LOG(table, Initialize)) return nullptr;
//
// Threads: any.
// Errors:  none; memory beyond the declared size is neither read nor written (but by Set).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "forge/export.h"
#include "forge/forge_capi.h"
#include "forge/logger.h"

namespace forge {

// Does the declared size reach the end of this field of the structure?
template <typename Structure, typename Field>
bool Reaches(const Structure& structure, const Field& field) {
  const auto* begin = reinterpret_cast<const char*>(&structure);
  const auto offset = reinterpret_cast<const char*>(&field) - begin;
  constexpr std::size_t kWidth = sizeof(field);  // NOLINT(bugprone-sizeof-expression): a pointer's.
  return FORGE_REACHES(structure.size, static_cast<std::size_t>(offset), kWidth);
}

// The field, or its null value where the declared size does not reach its end.
template <typename Structure, typename Field>
Field GetReached(const Structure& structure, Field Structure::*field) {
  return Reaches(structure, structure.*field) ? structure.*field : Field{};
}

// Is the field set, whatever the declared size? Only for a structure that is there in full.
template <typename Structure, typename Field>
bool Set(const Structure& structure, Field Structure::*field) {
  return structure.*field != nullptr;
}

// Does the declared size reach the field's end, and is the field set?
template <typename Structure, typename Field>
bool Covered(const Structure& structure, Field Structure::*field) {
  return Reaches(structure, structure.*field) && Set(structure, field);
}

// ---- Structures of which each field, the declared size included, has the room of a pointer ----

// How many bytes of such a structure count: whole fields only.
template <typename Structure>
std::size_t CoveredBytes(uint32_t size) {
  constexpr std::size_t kField = sizeof(void*);
  static_assert(std::is_trivially_copyable_v<Structure> && sizeof(Structure) % kField == 0);
  std::size_t end = 0;
  while (end < sizeof(Structure) && FORGE_REACHES(size, end, kField)) end += kField;
  return end;
}

// The structure as far as it is declared; the fields beyond, or all of them (null), are null.
template <typename Structure>
Structure CopyCovered(const Structure* structure) {
  Structure copy{};
  if (!structure) return copy;
  uint32_t size = 0;
  std::memcpy(&size, structure, sizeof size);
  std::memcpy(static_cast<void*>(&copy), structure, CoveredBytes<Structure>(size));
  std::memcpy(static_cast<void*>(&copy), &size, sizeof size);
  return copy;
}

// Stores the declared size, and fills the fields that it covers.
template <typename Structure>
void FillCovered(Structure* target, uint32_t size, const Structure& whole) {
  constexpr std::size_t kFirst = sizeof(void*);  // Behind the size and, on 64 bits, its padding.
  const std::size_t end = CoveredBytes<Structure>(size);
  auto* const bytes = reinterpret_cast<char*>(target);
  if (end > kFirst) {
    std::memcpy(bytes + kFirst, reinterpret_cast<const char*>(&whole) + kFirst, end - kFirst);
  }
  std::memcpy(bytes, &size, sizeof size);
}

// The line about an entry that a bound table lacks.
FORGE_EXPORT std::string NotProvided(std::string_view method);

}  // namespace forge

// The two tests of an entry; where it is missing they are false, after an error line that has the
// place of this statement.
#define FORGE_COVERED_OR_LOG(table, entry) FORGE_COVERED_OR_LOG_AS(table, entry, #entry)
#define FORGE_COVERED_OR_LOG_AS(table, entry, name)                  \
  (::forge::Covered(table, &std::decay_t<decltype(table)>::entry) || \
   (FORGE_LOG(kError) << ::forge::NotProvided(name), false))
#define FORGE_SET_OR_LOG(table, entry)                           \
  (::forge::Set(table, &std::decay_t<decltype(table)>::entry) || \
   (FORGE_LOG(kError) << ::forge::NotProvided(#entry), false))
