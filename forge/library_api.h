// A proc table that is filled by a loader function of a loaded library. The library stays loaded as
// long as any table of it is in use.
//
//   const auto api = forge::LibraryApi<TAVOProcTable>::Create(library, loader);
//   if (api && forge::Covered(api->Get(), &TAVOProcTable::Initialize)) api->Get().Initialize();
//
// Threads:   any; a table does not change after Create.
// Ownership: the object owns its table and shares the library.
// Errors:    a failure is one error line and a null result.
#pragma once

#include <memory>
#include <utility>

#include "forge/export.h"
#include "forge/forge_capi.h"
#include "forge/library.h"
#include "forge/proc_table.h"

namespace forge {
namespace details {

// The two halves of Create, before and after the loader's call. False, and an error line, when the
// table cannot be bound.
FORGE_EXPORT bool CanBind(const Library* library, bool has_loader);
FORGE_EXPORT bool HasBound(ForgeResult result);

}  // namespace details

// A bound table. Table is a C structure whose first field `size` is its declared size.
template <typename Table>
class LibraryApi {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  // A loader function fills the table as far as both caller and library know it. `size` is the
  // table's declared size.
  using Loader = ForgeResult (*)(Table* table, unsigned int size);

  explicit LibraryApi(std::shared_ptr<Library> library, PrivateTag)
      : library_(std::move(library)) {}
  LibraryApi(const LibraryApi&) = delete;
  LibraryApi& operator=(const LibraryApi&) = delete;

  // Calls the loader with a cleared table. Null, and an error line, when the library or the loader
  // is null, or when the loader's result is not FORGE_RESULT_OK.
  static std::unique_ptr<LibraryApi> Create(const std::shared_ptr<Library>& library, Loader loader);

  // The table. An older library leaves entries null: test each with Covered before the call.
  const Table& Get() const { return table_; }

  // The library that was given to Create, never null.
  const std::shared_ptr<Library>& GetLibrary() const { return library_; }

 private:
  const std::shared_ptr<Library> library_;
  Table table_{};
};

// ------------------------------------------------------------------------------------------------

template <typename Table>
std::unique_ptr<LibraryApi<Table>> LibraryApi<Table>::Create(
    const std::shared_ptr<Library>& library, Loader loader) {
  if (!details::CanBind(library.get(), loader != nullptr)) return nullptr;
  auto api = std::make_unique<LibraryApi>(library, PrivateTag{});
  api->table_.size = sizeof(Table);
  return details::HasBound(loader(&api->table_, sizeof(Table))) ? std::move(api) : nullptr;
}

}  // namespace forge
