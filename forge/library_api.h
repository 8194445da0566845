// A proc table, filled by a loader function of a loaded library, which stays loaded as long as any
// table of it is in use.
//
//   const auto api = forge::LibraryApi<TAVOProcTable>::Create(library, loader);
//   if (api && forge::Covered(api->Get(), &TAVOProcTable::Initialize)) api->Get().Initialize();
//
// Threads: any; a bound table is never written again.
// Errors:  one error line and a null result.
#pragma once

#include <memory>
#include <utility>

#include "forge/export.h"
#include "forge/forge_capi.h"
#include "forge/library.h"
#include "forge/proc_table.h"

namespace forge {
namespace details {

// The two halves of binding a table, around the loader's call. False, and a line: not possible.
FORGE_EXPORT bool CanBind(const Library* library, bool has_loader);
FORGE_EXPORT bool HasBound(ForgeResult result);

}  // namespace details

template <typename Table>
class LibraryApi {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  // Fills the table as far as caller and library both know it.
  using Loader = ForgeResult (*)(Table* table, unsigned int size);

  explicit LibraryApi(std::shared_ptr<Library> library, PrivateTag)
      : library_(std::move(library)) {}
  LibraryApi(const LibraryApi&) = delete;
  LibraryApi& operator=(const LibraryApi&) = delete;

  static std::unique_ptr<LibraryApi> Create(const std::shared_ptr<Library>& library, Loader loader);

  // An entry may be missing: test it with Covered before the call.
  const Table& Get() const { return table_; }

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
