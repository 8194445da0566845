// Asks the system to open URIs.
//
// Threads: any; a callback runs on the event loop, whether or not this still lives.
// Errors:  an error line when the library does not offer it; a request that is refused is dropped
//          with its callback uncalled.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "forge/export.h"
#include "forge/library_api.h"
#include "src/tavo_capi.h"

namespace tavo {

class FORGE_EXPORT IntentManager {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  using Table = forge::LibraryApi<TAVOIntentManagerProcTable>;

  IntentManager(std::unique_ptr<Table>&& table, _TAVOIntentManagerRef* intents, PrivateTag);
  IntentManager(const IntentManager&) = delete;
  IntentManager& operator=(const IntentManager&) = delete;

  // Null without a table or a reference.
  static std::unique_ptr<IntentManager> Create(std::unique_ptr<Table>&& table,
                                               _TAVOIntentManagerRef* intents);

  // The callback is told once whether the URI was opened; not at all when the manager is released
  // before.
  void OpenUri(const std::string& uri, std::function<void(bool)>&& callback);

 private:
  const std::unique_ptr<Table> table_;
  _TAVOIntentManagerRef* const intents_;
};

}  // namespace tavo
