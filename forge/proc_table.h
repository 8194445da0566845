// Access to C tables and structures that may come from an older or a newer library. Their first
// field is their declared size in bytes, `size`; a field exists only if the declared size covers
// it.
//
//   if (!FORGE_COVERED_OR_LOG(table, Initialize)) return nullptr;
//   table.Initialize();
//
//   const auto slots = forge::CopyCovered(caller_slots);  // Other fields are null.
//   forge::FillCovered(caller_table, size, full_table);   // Other fields are not written.
//
// Threads:   any.
// Ownership: all arguments are borrowed until the call returns.
// Errors:    none are thrown. Memory beyond the declared size is neither read nor written, except
//            by Set.
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

// Returns whether the declared size reaches the end of this field of the structure.
template <typename Structure, typename Field>
bool Reaches(const Structure& structure, const Field& field) {
  const auto* begin = reinterpret_cast<const char*>(&structure);
  const auto offset = reinterpret_cast<const char*>(&field) - begin;
  constexpr std::size_t kWidth = sizeof(field);  // NOLINT(bugprone-sizeof-expression): a pointer's.
  return FORGE_REACHES(structure.size, static_cast<std::size_t>(offset), kWidth);
}

// Returns the field, or its null value when the declared size does not reach its end.
template <typename Structure, typename Field>
Field GetReached(const Structure& structure, Field Structure::*field) {
  return Reaches(structure, structure.*field) ? structure.*field : Field{};
}

// Returns whether the field is not null, whatever the declared size is. Only for a structure that
// is in memory in full.
template <typename Structure, typename Field>
bool Set(const Structure& structure, Field Structure::*field) {
  return structure.*field != nullptr;
}

// Returns whether the declared size reaches the field's end and the field is not null.
template <typename Structure, typename Field>
bool Covered(const Structure& structure, Field Structure::*field) {
  return Reaches(structure, structure.*field) && Set(structure, field);
}

// ---- Structures whose fields, including the declared size, have the width of a pointer each ----

// Returns how many bytes of such a structure the declared size covers, counted in whole fields.
template <typename Structure>
std::size_t CoveredBytes(uint32_t size) {
  constexpr std::size_t kField = sizeof(void*);
  static_assert(std::is_trivially_copyable_v<Structure> && sizeof(Structure) % kField == 0);
  std::size_t end = 0;
  while (end < sizeof(Structure) && FORGE_REACHES(size, end, kField)) end += kField;
  return end;
}

// Returns a copy of the structure as far as its declared size covers it. Fields beyond that are
// null. A null structure gives a copy in which everything is null. The copy has the same declared
// size.
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

// Stores the declared size in `target`, and copies from `whole` the fields that it covers. Other
// bytes of `target` keep their content. `target` must not be null.
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

// Returns the text of the log line about an entry that a bound table lacks.
FORGE_EXPORT std::string NotProvided(std::string_view method);

}  // namespace forge

// The two tests of an entry, as expressions. When the entry is missing they are false, after an
// error line with the location of the statement. `name` is the entry's name in the line.
#define FORGE_COVERED_OR_LOG(table, entry) FORGE_COVERED_OR_LOG_AS(table, entry, #entry)
#define FORGE_COVERED_OR_LOG_AS(table, entry, name)                  \
  (::forge::Covered(table, &std::decay_t<decltype(table)>::entry) || \
   (FORGE_LOG(kError) << ::forge::NotProvided(name), false))
#define FORGE_SET_OR_LOG(table, entry)                           \
  (::forge::Set(table, &std::decay_t<decltype(table)>::entry) || \
   (FORGE_LOG(kError) << ::forge::NotProvided(#entry), false))
