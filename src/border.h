// The border between C++ and the C interface: the rules of every entry and callback.
//
// Threads: any.
// Errors:  a stray exception ends here as one error line. Only NullTextError passes FenceEntry.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "forge/fence.h"
#include "forge/forge_capi.h"
#include "forge/null_text.h"
#include "forge/proc_table.h"

namespace tavo::details {

using forge::Fence;
using forge::NullTextError;
using forge::RequireText;

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

// Returns the result of `create`, or null when it throws; the caller reports that in its own words.
template <typename Create>
std::invoke_result_t<Create> CreateOrNull(Create&& create) noexcept {
  try {
    return create();
  } catch (...) {
    return nullptr;
  }
}

// Fills the caller's table, of `size` declared bytes, from the full one.
template <typename Table>
ForgeResult FillTable(Table* table, uint32_t size, const Table& full) {
  std::memset(static_cast<void*>(table), 0, size);
  forge::FillCovered(table, size, full);
  return FORGE_RESULT_OK;
}

}  // namespace tavo::details
