// What a peer tells about itself, in its answer to "$/features". An old peer tells nothing.
//
// Threads:   a plain value, no locking.
// Ownership: the object owns its texts.
// Errors:    what is damaged is ignored; a list of methods that is too long is a warning line.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "flrpc/message.h"

namespace tavo::kit::details {

struct PeerFeatures {
  static PeerFeatures Read(const flrpc::Message::Response& response);

  bool has_cancel = false;                     // It takes "$/cancel".
  std::set<std::string, std::less<>> methods;  // Calls of these travel with a token.
};

}  // namespace tavo::kit::details
