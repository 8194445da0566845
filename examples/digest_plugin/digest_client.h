// The conversation with the task "digest", which makes the digests:
//
//   request      "digest" {"path": text}  ->  {"sha256": text, "size": bytes}, or an error
//   notification "progress" {"path": text, "done": bytes, "size": bytes}, of a large file
//   request      "shutdown"               ->  null; the task ends
//
// Paths are absolute and percent-encoded: texts are UTF-8, while names are any bytes; and unlike
// bytes, such a text can still be read by whoever looks at the conversation.
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

// Told what comes of it. None may delete the client.
class IDigestListener {
 public:
  virtual ~IDigestListener() = default;

  // One of the two for each file, in the order of the files.
  virtual void OnDigest(const File& file, const std::string& sha256) = 0;
  virtual void OnFailure(const File& file, const std::string& cause) = 0;

  // A part of one file, and what is done of all.
  virtual void OnPart(const File& file, int64_t done, int64_t size) = 0;
  virtual void OnProgress(size_t files_done, int64_t bytes_done) = 0;

  // The last call: all is done, or the sentence says why not.
  virtual void OnEnd(const std::string& failure) = 0;
};

class DigestClient {
 public:
  DigestClient(std::shared_ptr<flrpc::IClient> client, std::vector<File> files,
               std::chrono::seconds timeout, IDigestListener& listener);

  void Run();

  size_t GetRequestCount() const { return request_count_; }
  int64_t GetByteCount() const { return byte_count_; }  // Of the digests.

 private:
  struct Answer {
    bool has_come = false;
    std::string sha256;  // Empty: there is none, for the cause.
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
  QTimer silence_;  // Nothing else tells that a task has died.

  struct Part {
    size_t index;
    int64_t done;
  };
  std::map<std::string, Part> parts_;  // Of what is asked for now, by the path in the request.
  std::vector<Answer> answers_;        // One a file.
  size_t sent_ = 0;
  size_t answered_ = 0;
  size_t told_ = 0;
  size_t request_count_ = 0;
  int64_t byte_count_ = 0;
  int64_t bytes_done_ = 0;  // With the files that failed.
  bool has_ended_ = false;
};

}  // namespace digest
