#include "digest_client.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

namespace digest {
namespace {

using cw::EncodableMap;
using cw::EncodableValue;
using Error = flrpc::Message::Error;

constexpr size_t kWindow = 16;  // The number of requests in flight.

const EncodableValue* Find(const EncodableMap* map, const char* key) {
  if (!map) return nullptr;
  const auto found = map->find(key);
  return found == map->end() ? nullptr : &found->second;
}

std::string TextOf(const EncodableValue* value) {
  const auto* text = value ? value->GetIf<std::string>() : nullptr;
  return text ? *text : std::string();
}

// Returns -1 when the value is no integer.
int64_t NumberOf(const EncodableValue* value) {
  if (!value) return -1;
  if (const auto* number = value->GetIf<int64_t>()) return *number;
  const auto* number = value->GetIf<int32_t>();
  return number ? *number : -1;
}

bool IsDigest(const std::string& text) {
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

DigestClient::DigestClient(std::shared_ptr<flrpc::IClient> client, std::vector<File> files,
                           std::chrono::seconds timeout, IDigestListener& listener)
    : client_(std::move(client)),
      files_(std::move(files)),
      listener_(listener),
      answers_(files_.size()) {
  silence_.setSingleShot(true);
  silence_.setInterval(timeout);
  QObject::connect(&silence_, &QTimer::timeout, &silence_, [this, timeout] {
    End("the task \"digest\" has not answered for " + std::to_string(timeout.count()) + " s");
  });
}

void DigestClient::Run() {
  silence_.start();
  client_->OnConnected([this](const std::optional<Error>& error) {
    if (error) return End("the task \"digest\" cannot be used: " + error->message);
    SendMore();
  });
  client_->OnDisconnected([this](const std::optional<Error>& error) {
    End("the connection to the task \"digest\" is lost" + (error ? ": " + error->message : ""));
  });
  client_->OnNotify("progress", [this](const flrpc::Message::Notification& notification) {
    HandleProgress(notification.params);
  });
  client_->Run();
}

// Runs within callbacks, where an exception would only be logged and the work would stop.
void DigestClient::SendMore() {
  try {
    while (!has_ended_ && sent_ < files_.size() && sent_ < answered_ + kWindow) Send(sent_++);
    if (!has_ended_ && answered_ == files_.size()) ShutDown();
  } catch (const std::exception& error) {
    End(error.what());
  }
}

void DigestClient::Send(size_t index) {
  const std::string& path = files_[index].encoded;
  const EncodableMap params = {{"path", path}};
  parts_[path] = {index, 0};
  ++request_count_;
  client_->SendRequest("digest", params, [this, index](const flrpc::Message::Response& response) {
    HandleAnswer(index, response);
  });
}

void DigestClient::HandleAnswer(size_t index, const flrpc::Message::Response& response) {
  if (has_ended_) return;
  silence_.start();
  Answer& answer = answers_[index];
  const EncodableMap* const result = response.GetMapResult();
  const int64_t size = NumberOf(Find(result, "size"));
  answer.has_come = true;
  answer.sha256 = TextOf(Find(result, "sha256"));
  if (response.IsError()) {
    answer.cause = response.GetError()->message;
  } else if (!IsDigest(answer.sha256) || size < 0) {
    answer.sha256.clear();
    answer.cause = "the answer is not a digest";
  } else {
    byte_count_ += size;
  }
  bytes_done_ += answer.sha256.empty() ? files_[index].size : size;
  parts_.erase(files_[index].encoded);
  ++answered_;
  TellAnswers();
  TellProgress();
  SendMore();
}

void DigestClient::HandleProgress(const EncodableValue& params) {
  if (has_ended_) return;
  silence_.start();
  const auto* const map = params.GetIf<EncodableMap>();
  const auto part = parts_.find(TextOf(Find(map, "path")));
  if (part == parts_.end()) return;
  part->second.done = std::max<int64_t>(0, NumberOf(Find(map, "done")));
  listener_.OnPart(files_[part->second.index], part->second.done, NumberOf(Find(map, "size")));
  TellProgress();
}

// Answers may come in another order: a small file is done before a large one.
void DigestClient::TellAnswers() {
  for (; told_ < files_.size() && answers_[told_].has_come; ++told_) {
    const Answer& answer = answers_[told_];
    if (answer.sha256.empty()) {
      listener_.OnFailure(files_[told_], answer.cause);
    } else {
      listener_.OnDigest(files_[told_], answer.sha256);
    }
  }
}

void DigestClient::TellProgress() {
  int64_t bytes = bytes_done_;
  for (const auto& part : parts_) bytes += part.second.done;
  listener_.OnProgress(answered_, bytes);
}

void DigestClient::ShutDown() {
  ++request_count_;
  client_->SendRequest("shutdown", {}, [this](const flrpc::Message::Response& response) {
    const auto* const error = response.GetError();
    End(error ? "the task \"digest\" does not end: " + error->message : "");
  });
}

void DigestClient::End(const std::string& failure) {
  if (std::exchange(has_ended_, true)) return;
  silence_.stop();
  listener_.OnEnd(failure);
}

}  // namespace digest
