// What a C table or structure offers: its first field is its declared size, `size`, in bytes.
//
//   if (!FORGE_COVERED_OR_LOG(table, Initialize)) return nullptr;
//
// Threads: any.
// Errors:  none; memory beyond the declared size is never read by Covered.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

#include "forge/export.h"
#include "forge/logger.h"

namespace forge {

// Does the declared size reach the end of this field of the structure?
template <typename Structure, typename Field>
bool Reaches(const Structure& structure, const Field& field) {
  const auto* begin = reinterpret_cast<const char*>(&structure);
  const auto* end = reinterpret_cast<const char*>(&field + 1);
  return structure.size >= static_cast<std::size_t>(end - begin);
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
