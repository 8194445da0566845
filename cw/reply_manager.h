// The guard of a reply: it calls the reply at most once, and it reports a reply that is lost. A
// method result over a BinaryReply is built with it.
//
//   cw::internal::ReplyManager manager(std::move(reply));
//   manager.SendResponseData(&bytes);
//
// Threads:   those of the reply; the manager has no lock of its own.
// Ownership: the manager owns the reply and destroys it after its call. The call may destroy the
//            manager.
// Errors:    a second response, and destruction without a response, are lines on standard error. An
//            exception of the reply leaves SendResponseData, and the response counts as sent.
#pragma once

#include <cstdint>
#include <vector>

#include "cw/binary_messenger.h"
#include "forge/export.h"

namespace cw::internal {

// The guard of one reply.
class FORGE_EXPORT ReplyManager {
 public:
  // An empty reply fails an assertion and ends the process.
  explicit ReplyManager(BinaryReply reply);

  // Never calls the reply.
  ~ReplyManager();
  ReplyManager(const ReplyManager&) = delete;
  ReplyManager& operator=(const ReplyManager&) = delete;

  // Calls the reply with the bytes, which are borrowed until the call returns. Null and an empty
  // vector are the empty response.
  void SendResponseData(const std::vector<uint8_t>* data);

 private:
  BinaryReply reply_handler_;  // Empty once it was called.
};

}  // namespace cw::internal
