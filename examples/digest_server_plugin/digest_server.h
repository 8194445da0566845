// Answers requests for the SHA-256 of files:
//
//   request "digest" {"path": text}  ->  {"sha256": text, "size": bytes}
//     progress: the number of bytes, as a large file is read, the last one at its end
//   request "shutdown"               ->  null; the application ends
//
// A path is absolute and percent-encoded. Wrong parameters are answered with -32602, a file that
// cannot be read with -32000 and the cause. Each file is read on a thread of a pool: a small one
// does not wait for a large one, and the event loop goes on.
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
