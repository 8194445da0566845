#include "forge/library.h"

#include <dlfcn.h>

#include <string>
#include <utility>

#include "forge/logger.h"

namespace forge {

Library::Library(std::filesystem::path path, PrivateTag) : path_(std::move(path)) {}

Library::~Library() {
  if (handle_) dlclose(handle_);
}

std::shared_ptr<Library> Library::Create(const std::filesystem::path& path) {
  auto library = std::make_shared<Library>(path, PrivateTag{});
  library->handle_ = dlopen(path.c_str(), RTLD_NOW);
  if (library->handle_) return library;
  const std::string cause = dlerror();
  // The path prints quotes of its own, so the line has two pairs of quotes. This is on purpose.
  FORGE_LOG(kError) << "Couldn't load library \"" << path << "\": " << cause;
  return nullptr;
}

void* Library::ResolveImpl(std::string_view name) const {
  if (!handle_) {
    FORGE_LOG(kError) << "Could not load " << name << " symbol: Library handle is null";
    return nullptr;
  }
  void* const symbol = dlsym(handle_, std::string(name).c_str());
  if (symbol) return symbol;
  const std::string cause = dlerror();
  FORGE_LOG(kError) << "Could not load " << name << " symbol: " << cause;
  return nullptr;
}

}  // namespace forge
