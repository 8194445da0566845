// The client of the task "digest", which makes the digests:
//
//   request "digest" {"path": text}  ->  {"sha256": text, "size": bytes}, or an error
//     progress: the number of bytes, of a large file
//   request "shutdown"               ->  null; the task ends
//
// Paths are absolute and percent-encoded, because texts are UTF-8 while names are any bytes. Unlike
// bytes, such a text stays readable in a record of the messages.
//
// Threads: the event loop's.
#pragma once

#include <kit/caller.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "file_list.h"

namespace digest {

struct Digest {
  std::string sha256;
  int64_t size = 0;
};
TAVO_DESCRIBE(Digest, sha256, size)

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

// Asks for the digests, with one request a file and one to end the task. Nothing is called after
// the end of the caller, which must be the last owner of its client. `timeout` is how long a
// request may go without an answer and without progress.
void AskForDigests(const std::shared_ptr<tavo::kit::Caller>& caller, std::vector<File> files,
                   std::chrono::seconds timeout, IDigestListener& listener);

}  // namespace digest
