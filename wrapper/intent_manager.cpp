#include "wrapper/intent_manager.h"

#include <utility>

#include "forge/signals.h"

namespace tavo {

IntentManager::IntentManager(std::unique_ptr<Table>&& table, _TAVOIntentManagerRef* intents,
                             PrivateTag)
    : table_(std::move(table)), intents_(intents) {}

std::unique_ptr<IntentManager> IntentManager::Create(std::unique_ptr<Table>&& table,
                                                     _TAVOIntentManagerRef* intents) {
  if (!table || !intents) return nullptr;
  return std::make_unique<IntentManager>(std::move(table), intents, PrivateTag{});
}

void IntentManager::OpenUri(const std::string& uri, std::function<void(bool)>&& callback) {
  if (!FORGE_COVERED_OR_LOG(table_->Get(), OpenUri)) return;
  auto slot =
      forge::CreateSlot<TAVOOpenUriSlot, bool>([callback = std::move(callback)](bool success) {
        if (callback) callback(success);
      });
  const ForgeResult result = table_->Get().OpenUri(intents_, uri.c_str(), &slot);
  if (result != FORGE_RESULT_OK) slot.release(slot.user_data);  // The slot was refused.
}

}  // namespace tavo
