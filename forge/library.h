// A shared library that is loaded by its path, and stays loaded as long as the object lives.
//
//   const auto library = forge::Library::Create("/usr/lib/app/libtavo.so");
//   const auto loader = library->Resolve<decltype(&TAVOProcTableLoad)>("TAVOProcTableLoad");
//
// Threads:   any; the dynamic loader has its own lock.
// Ownership: the object holds one reference to the library. Addresses of its symbols are valid as
//            long as the object lives.
// Errors:    a failure is one error line with the loader's reason, and a null result.
#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "forge/export.h"

namespace forge {

// One loaded library. It is shared by all objects that use its symbols (forge/library_api.h).
class FORGE_EXPORT Library {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  // For Create: the constructor loads nothing.
  explicit Library(std::filesystem::path path, PrivateTag);
  ~Library();  // Gives the reference back; the loader may unload the library then.
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // Loads the library and all that it needs, and resolves its undefined symbols at once. Its
  // symbols do not become visible to other libraries. A path without a slash is searched for in the
  // loader's directories. Null on failure.
  static std::shared_ptr<Library> Create(const std::filesystem::path& path);

  // The path as it was given to Create.
  const std::filesystem::path& GetPath() const { return path_; }

  // Returns the address of a symbol, or null and an error line when the library has no such symbol.
  void* ResolveImpl(std::string_view name) const;

  // The same, as a pointer to a function of the type Fn. The caller must name the symbol's true
  // type.
  template <typename Fn>
  Fn Resolve(std::string_view name) const {
    return reinterpret_cast<Fn>(ResolveImpl(name));
  }

 private:
  const std::filesystem::path path_;
  void* handle_ = nullptr;
};

}  // namespace forge
