#include "trace/real_library.h"

#include <dlfcn.h>

#include "trace/report.h"
#include "trace/settings.h"

namespace trace {
namespace {

using Loader = decltype(&TAVOProcTableLoad);

// The name by which this library needs the real one, so it is loaded already.
constexpr char kName[] = "libtavo.so.real";

const void* GetLibraryOf(const void* address) {
  Dl_info library{};
  return dladdr(address, &library) != 0 ? library.dli_fbase : nullptr;
}

Loader FindLoader() {
  const char* const setting = GetSetting("TAVO_TRACE_LIBRARY");
  void* const library = dlopen(setting ? setting : kName, RTLD_NOW);
  void* const symbol = library ? dlsym(library, "TAVOProcTableLoad") : nullptr;
  if (!symbol) {
    const char* const cause = dlerror();
    Report("the real library cannot be used: ", cause ? cause : "it has no TAVOProcTableLoad");
    return nullptr;
  }
  // An address of this file: the exported function may be another library's in this process.
  if (GetLibraryOf(symbol) == GetLibraryOf(reinterpret_cast<const void*>(&FindLoader))) {
    Report("the real library cannot be used: this is the trace itself: ",
           setting ? setting : kName);
    return nullptr;
  }
  return reinterpret_cast<Loader>(symbol);
}

}  // namespace

Loader GetRealLoader() {
  static const Loader loader = FindLoader();
  return loader;
}

}  // namespace trace
