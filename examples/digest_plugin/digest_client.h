// Asks the task "digest" for the digests of files: digest_messages.h has the messages.
//
// Threads: the event loop's.
#pragma once

#include <kit/caller.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "digest_messages.h"
#include "file_list.h"

namespace digest {

// The receiver of the results. No operation may drop the caller.
class IDigestListener {
 public:
  virtual ~IDigestListener() = default;

  // Called once for each file, in the order of the files.
  virtual void OnAnswer(const File& file, const tavo::kit::Result<Digest>& answer) = 0;

  // The progress of one file and of all files, in bytes.
  virtual void OnPart(const File& file, int64_t done) = 0;
  virtual void OnProgress(size_t files_done, int64_t bytes_done) = 0;

  // The last call: all files are done, or the sentence gives the reason.
  virtual void OnEnd(const std::string& failure) = 0;
};

// Sends one request a file, a few at once, and one to end the task. A request fails when it goes
// without an answer and without progress for `timeout`. Nothing is called after the end of the
// caller that is returned, which must be the last owner of the client.
std::shared_ptr<tavo::kit::Caller> AskForDigests(std::shared_ptr<flrpc::IClient> client,
                                                 std::shared_ptr<tavo::kit::IClock> clock,
                                                 std::vector<File> files,
                                                 std::chrono::seconds timeout,
                                                 IDigestListener& listener);

}  // namespace digest
