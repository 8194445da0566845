// A shared library, loaded by its path for as long as the object lives.
//
//   const auto library = forge::Library::Create("/usr/lib/app/libtavo.so");
//   const auto loader = library->Resolve<decltype(&TAVOProcTableLoad)>("TAVOProcTableLoad");
//
// Threads: any; the dynamic loader has its own lock.
// Errors:  one error line and a null result.
#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "forge/export.h"

namespace forge {

class FORGE_EXPORT Library {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  explicit Library(std::filesystem::path path, PrivateTag);
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // Loads the library with all that it needs; its symbols stay its own. Null when that fails.
  static std::shared_ptr<Library> Create(const std::filesystem::path& path);

  // As it was given to Create.
  const std::filesystem::path& GetPath() const { return path_; }

  // The address of a symbol, valid as long as the library; null when there is none.
  void* ResolveImpl(std::string_view name) const;

  // The same, as a pointer to a function of this type.
  template <typename Fn>
  Fn Resolve(std::string_view name) const {
    return reinterpret_cast<Fn>(ResolveImpl(name));
  }

 private:
  const std::filesystem::path path_;
  void* handle_ = nullptr;
};

}  // namespace forge
