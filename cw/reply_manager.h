// Guards a reply, so that it is called at most once and its loss is noticed: what a method result
// over a BinaryReply is built with.
//
// Threads: as the reply's.
// Errors:  a second response, and destruction without one, are lines on standard error.
#pragma once

#include <cstdint>
#include <vector>

#include "cw/binary_messenger.h"
#include "forge/export.h"

namespace cw::internal {

class FORGE_EXPORT ReplyManager {
 public:
  explicit ReplyManager(BinaryReply reply);  // An empty one ends the process.
  ~ReplyManager();
  ReplyManager(const ReplyManager&) = delete;
  ReplyManager& operator=(const ReplyManager&) = delete;

  // Null, or no bytes: the empty response.
  void SendResponseData(const std::vector<uint8_t>* data);

 private:
  BinaryReply reply_handler_;  // Empty once used.
};

}  // namespace cw::internal
