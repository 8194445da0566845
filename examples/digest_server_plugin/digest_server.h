// Answers requests for the SHA-256 of files (digest_messages.h). Each file is read on a thread of a
// pool: a small one does not wait for a large one, and the event loop goes on.
//
// Threads: the event loop's.
#pragma once

#include <cw/application_wrapper.h>
#include <kit/responder.h>

#include <memory>

#include <QThreadPool>

namespace digest {

class DigestServer {
 public:
  DigestServer(const std::shared_ptr<cw::ApplicationWrapper>& application,
               const std::shared_ptr<flrpc::IServer>& server);

 private:
  QThreadPool pool_;                                 // Its end waits for its threads, which
  std::shared_ptr<tavo::kit::Responder> responder_;  // end with the responder.
};

}  // namespace digest
