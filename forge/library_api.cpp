#include "forge/library_api.h"

#include "forge/logger.h"

namespace forge::details {

bool CanBind(const Library* library, bool has_loader) {
  if (!library) {
    FORGE_LOG(kError) << "No library provided.";
    return false;
  }
  if (!has_loader) FORGE_LOG(kError) << "No proc table loader function provided.";
  return has_loader;
}

bool HasBound(ForgeResult result) {
  if (result == FORGE_RESULT_OK) return true;
  FORGE_LOG(kError) << "Failed to load proc table.";
  return false;
}

}  // namespace forge::details
