#include "digest_client.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <variant>

namespace digest {
namespace {

using tavo::kit::Caller;
using tavo::kit::CallOptions;
using tavo::kit::Cause;
using tavo::kit::Failure;
using tavo::kit::Result;

constexpr size_t kAskedAtOnce = 16;

bool IsDigest(const Digest& digest) {
  return digest.size >= 0 && digest.sha256.size() == 64 &&
         digest.sha256.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// The callbacks of the caller own it.
class Conversation : public std::enable_shared_from_this<Conversation> {
 public:
  Conversation(Caller& caller, std::vector<File>&& files, std::chrono::seconds timeout,
               IDigestListener& listener)
      : caller_(caller), timeout_(timeout), listener_(listener) {
    for (File& file : files) files_.push_back({std::move(file), 0, {}});
  }

  void Begin() {
    caller_.GetClient()->OnConnected([self = shared_from_this()](const auto& error) {
      if (error) self->End("the task \"digest\" cannot be used: " + error->message);
    });
    caller_.GetClient()->OnDisconnected([self = shared_from_this()](const auto& error) {
      self->End("the connection to the task \"digest\" is lost" +
                (error ? ": " + error->message : ""));
    });
    for (Work& work : files_) Ask(work);
    if (files_.empty()) ShutDown();
    caller_.Run();
  }

 private:
  struct Work {
    File file;
    int64_t done = 0;
    std::optional<Result<Digest>> answer;
  };

  void Ask(Work& work) {
    caller_.Call<Digest>(
        "digest", FileName{work.file.encoded},
        [self = shared_from_this(), &work](Result<Digest> digest) {
          if (!self->has_ended_) self->HandleAnswer(work, std::move(digest));
        },
        CallOptions().TimeoutInFlight(timeout_).ProgressRenews().OnProgress<int64_t>(
            [self = shared_from_this(), &work](int64_t done) {
              if (self->has_ended_) return;
              self->listener_.OnPart(work.file, done);
              self->SetDone(work, std::max<int64_t>(0, done));
            }));
  }

  void HandleAnswer(Work& work, Result<Digest> digest) {
    if (!digest && EndsAll(digest.GetFailure())) return;
    const bool is_bad = digest ? !IsDigest(*digest) : digest.GetFailure().cause == Cause::kBadValue;
    if (is_bad)
      digest = Failure{Cause::kBadValue, {flrpc::kInternalError, "the answer is not a digest"}};
    work.answer = std::move(digest);
    ++answered_;
    TellAnswers();
    SetDone(work, *work.answer ? (*work.answer)->size : work.file.size);
    if (answered_ == files_.size()) ShutDown();
  }

  // Answers may come in another order: a small file is done before a large one.
  void TellAnswers() {
    for (; told_ < files_.size() && files_[told_].answer; ++told_) {
      listener_.OnAnswer(files_[told_].file, *files_[told_].answer);
    }
  }

  void SetDone(Work& work, int64_t bytes) {
    bytes_done_ += bytes - std::exchange(work.done, bytes);
    listener_.OnProgress(answered_, bytes_done_);
  }

  void ShutDown() {
    caller_.Call<std::monostate>(
        "shutdown", {},
        [self = shared_from_this()](const Result<std::monostate>& answer) {
          if (answer) return self->End("");
          if (self->EndsAll(answer.GetFailure())) return;
          self->End("the task \"digest\" does not end: " + answer.GetFailure().error.message);
        },
        CallOptions().Timeout(timeout_));
  }

  // The client tells of a lost connection by itself.
  bool EndsAll(const Failure& failure) {
    if (failure.cause == Cause::kTimeout) {
      End("the task \"digest\" has not answered for " + std::to_string(timeout_.count()) + " s");
    }
    return has_ended_ || caller_.GetClient()->HasConnectionFailed();
  }

  void End(const std::string& failure) {
    if (!std::exchange(has_ended_, true)) listener_.OnEnd(failure);
  }

  Caller& caller_;
  std::vector<Work> files_;
  const std::chrono::seconds timeout_;
  IDigestListener& listener_;
  size_t answered_ = 0;
  size_t told_ = 0;
  int64_t bytes_done_ = 0;
  bool has_ended_ = false;
};

}  // namespace

std::shared_ptr<Caller> AskForDigests(std::shared_ptr<flrpc::IClient> client,
                                      std::shared_ptr<tavo::kit::IClock> clock,
                                      std::vector<File> files, std::chrono::seconds timeout,
                                      IDigestListener& listener) {
  const tavo::kit::Limits limits{kAskedAtOnce, files.size() + 1};
  auto caller = Caller::Create(std::move(client), std::move(clock), limits);
  std::make_shared<Conversation>(*caller, std::move(files), timeout, listener)->Begin();
  return caller;
}

}  // namespace digest
