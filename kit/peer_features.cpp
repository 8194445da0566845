#include "kit/peer_features.h"

#include <cstddef>

#include "cw/map_access.h"
#include "forge/logger.h"

namespace tavo::kit::details {
namespace {

constexpr size_t kMaxMethods = 4096;  // A longer list of a peer's methods is not read.

}  // namespace

PeerFeatures PeerFeatures::Read(const flrpc::Message::Response& response) {
  PeerFeatures features;
  const auto* const map = response.GetMapResult();
  if (!map) return features;
  features.has_cancel = cw::Get<bool>(*map, "cancel").value_or(false);
  const auto* const methods = cw::Find(*map, "methods");
  const auto* const list = methods ? methods->GetIf<cw::EncodableList>() : nullptr;
  if (!list) return features;
  if (list->size() > kMaxMethods) {
    FORGE_LOG(kWarn) << "The list of the peer's methods is ignored: it has " << list->size()
                     << " elements, more than " << kMaxMethods;
    return features;
  }
  for (const cw::EncodableValue& method : *list) {
    if (const auto* name = method.GetIf<std::string>()) features.methods.insert(*name);
  }
  return features;
}

}  // namespace tavo::kit::details
