// The client of the task "digest", which makes the digests:
//
//   request      "digest" {"path": text}  ->  {"sha256": text, "size": bytes}, or an error
//   notification "progress" {"path": text, "done": bytes, "size": bytes}, of a large file
//   request      "shutdown"               ->  null; the task ends
//
// Paths are absolute and percent-encoded, because texts are UTF-8 while names are any bytes. Unlike
// bytes, such a text stays readable in a record of the messages.
//
// Threads: the event loop's.
#pragma once

#include <flrpc/client.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <QTimer>

#include "file_list.h"

namespace digest {

// The receiver of the results. No operation may delete the client.
class IDigestListener {
 public:
  virtual ~IDigestListener() = default;

  // One of these two is called for each file, in the order of the files.
  virtual void OnDigest(const File& file, const std::string& sha256) = 0;
  virtual void OnFailure(const File& file, const std::string& cause) = 0;

  // The progress of one file and of all files.
  virtual void OnPart(const File& file, int64_t done, int64_t size) = 0;
  virtual void OnProgress(size_t files_done, int64_t bytes_done) = 0;

  // The last call: all files are done, or the sentence gives the reason.
  virtual void OnEnd(const std::string& failure) = 0;
};

class DigestClient {
 public:
  DigestClient(std::shared_ptr<flrpc::IClient> client, std::vector<File> files,
               std::chrono::seconds timeout, IDigestListener& listener);

  void Run();

  size_t GetRequestCount() const { return request_count_; }
  int64_t GetByteCount() const { return byte_count_; }  // Of the files with digests.

 private:
  struct Answer {
    bool has_come = false;
    std::string sha256;  // Empty: there is no digest, and `cause` tells why.
    std::string cause;
  };

  void SendMore();
  void Send(size_t index);
  void HandleAnswer(size_t index, const flrpc::Message::Response& response);
  void HandleProgress(const cw::EncodableValue& params);
  void TellAnswers();
  void TellProgress();
  void ShutDown();
  void End(const std::string& failure);

  const std::shared_ptr<flrpc::IClient> client_;
  const std::vector<File> files_;
  IDigestListener& listener_;
  QTimer silence_;  // The only sign that a task has died.

  struct Part {
    size_t index;
    int64_t done;
  };
  std::map<std::string, Part> parts_;  // The requests in flight, by the path in the request.
  std::vector<Answer> answers_;        // One for each file.
  size_t sent_ = 0;
  size_t answered_ = 0;
  size_t told_ = 0;
  size_t request_count_ = 0;
  int64_t byte_count_ = 0;
  int64_t bytes_done_ = 0;  // Including the files that failed.
  bool has_ended_ = false;
};

}  // namespace digest
