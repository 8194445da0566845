// The service's intents as a plug-in uses them: it asks the system to open URIs.
//
//   const auto intents = manager->GetIntentManager();
//   if (intents) intents->OpenUri("https://example.org", [](bool opened) { Show(opened); });
//
// Threads:   any. A callback runs on the event loop, whether or not this object still lives. If the
//            platform answers or fails at once, it runs within OpenUri.
// Ownership: the object shares the library, which stays loaded, and owns its table. It does not own
//            the service: the handle is valid until the service is released
//            (wrapper/manager_wrapper.h). The service keeps the callbacks.
// Errors:    an error line when the library does not offer the operation. A request that is refused
//            is dropped with its callback uncalled. An exception of a callback is an error line.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "forge/export.h"
#include "forge/library_api.h"
#include "src/tavo_capi.h"

namespace tavo {

// The intents of the service. ManagerWrapper::GetIntentManager makes it.
class FORGE_EXPORT IntentManager {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  using Table = forge::LibraryApi<TAVOIntentManagerProcTable>;

  // For Create; neither the table nor the handle may be null.
  IntentManager(std::unique_ptr<Table>&& table, _TAVOIntentManagerRef* intents, PrivateTag);
  IntentManager(const IntentManager&) = delete;
  IntentManager& operator=(const IntentManager&) = delete;

  // Returns null when the table or the handle is null.
  static std::unique_ptr<IntentManager> Create(std::unique_ptr<Table>&& table,
                                               _TAVOIntentManagerRef* intents);

  // Asks the system to open a URI. The callback (empty: the outcome does not matter) is called
  // once, with whether the URI was opened. It is destroyed uncalled when the request is refused,
  // and when the service is released first. Requests are sent one at a time, in their order.
  void OpenUri(const std::string& uri, std::function<void(bool)>&& callback);

 private:
  const std::unique_ptr<Table> table_;
  _TAVOIntentManagerRef* const intents_;
};

}  // namespace tavo
