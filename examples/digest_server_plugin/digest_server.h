// Answers requests for the SHA-256 of files:
//
//   request      "digest" {"path": text}  ->  {"sha256": text, "size": bytes}
//   notification "progress" {"path": text, "done": bytes, "size": bytes}, as a large file is read,
//                                             the last one at its end
//   request      "shutdown"               ->  null; the application ends
//
// A path is absolute and percent-encoded. Wrong parameters are answered with -32602, a file that
// cannot be read with -32000 and the cause. Files are read in turns, a slice each: a small one does
// not wait for a large one, and the event loop goes on.
//
// Threads: the event loop's.
#pragma once

#include <cw/application_wrapper.h>
#include <flrpc/server.h>

#include <deque>
#include <memory>
#include <string>

#include "file_digest.h"

namespace digest {

class DigestServer : public std::enable_shared_from_this<DigestServer> {
 public:
  DigestServer(std::shared_ptr<cw::ApplicationWrapper> application,
               std::shared_ptr<flrpc::IServer> server);

  void Run();

 private:
  struct Job {
    std::string path;  // The path in the request.
    std::unique_ptr<flrpc::IReply> reply;
    std::unique_ptr<FileDigest> file;
    int64_t told = 0;  // Bytes, in the last notification.
  };

  void Add(const cw::EncodableValue& params, std::unique_ptr<flrpc::IReply> reply);
  void ShutDown(flrpc::IReply& reply);

  void PostTurn();
  void TakeTurn();
  void OpenNext();
  void ReadNext();
  void TellProgress(Job* job, FileDigest::State state);

  const std::shared_ptr<cw::ApplicationWrapper> application_;
  const std::shared_ptr<flrpc::IServer> server_;
  std::deque<Job> waiting_;  // Not opened yet.
  std::deque<Job> open_;     // The first one is read next.
};

}  // namespace digest
