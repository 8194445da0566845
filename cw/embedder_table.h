// Shared parts of the objects over the embedder's tables: loading a table, calling an entry that
// may be missing, and the sets of numbers that are exchanged.
//
// Two tests tell whether an entry exists. The older entries are tested for null alone (forge::Set):
// a table is cleared before it is loaded, so an entry that the embedder does not know stays null.
// The newer entries must also be covered by the declared size (forge::Covered).
#pragma once

#include <cstdint>

#include "forge/proc_table.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace cw::details {

// Loads the table that belongs to a handle of the context. False when the context does not cover
// both, one is null, or the loader fails.
template <typename Table, typename Handle>
bool LoadTable(const FlutterOstrelPluginContext* context,
               Handle* FlutterOstrelPluginContext::*handle,
               uint32_t (*FlutterOstrelPluginContext::*loader)(Table*, uint32_t, Handle*),
               Table* table) {
  if (!context || !forge::Covered(*context, handle) || !forge::Covered(*context, loader)) {
    return false;
  }
  *table = Table{};
  table->size = sizeof(Table);
  return (context->*loader)(table, sizeof(Table), context->*handle) != 0;
}

// Calls an entry that only has to be set. If it is null, the result is `otherwise`.
template <typename Table, typename Result, typename... Parameters, typename... Arguments>
Result CallIfSet(const Table& table, Result (*Table::*entry)(Parameters...), Result otherwise,
                 Arguments... arguments) {
  return forge::Set(table, entry) ? (table.*entry)(arguments...) : otherwise;
}
template <typename Table, typename... Parameters, typename... Arguments>
void CallIfSet(const Table& table, void (*Table::*entry)(Parameters...), Arguments... arguments) {
  if (forge::Set(table, entry)) (table.*entry)(arguments...);
}

// The numbers from `first` to `last` in steps; any other number becomes `otherwise`.
struct NumberSet {
  uint32_t first;
  uint32_t last;
  uint32_t step;
  uint32_t otherwise;

  constexpr uint32_t Restrict(uint32_t number) const {
    const bool is_member = number >= first && number <= last && (number - first) % step == 0;
    return is_member ? number : otherwise;
  }
};

}  // namespace cw::details
