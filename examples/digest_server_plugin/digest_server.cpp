#include "digest_server.h"

#include <utility>

#include <QByteArray>

namespace digest {
namespace {

using cw::EncodableMap;
using cw::EncodableValue;

constexpr int kInvalidParams = -32602;
constexpr int kCannotBeRead = -32000;
constexpr size_t kMaxOpen = 32;  // There are few descriptors, but maybe many requests.
constexpr int64_t kLargeFile = int64_t{8} << 20;     // From there on progress is told,
constexpr int64_t kProgressStep = int64_t{4} << 20;  // that often.

const std::string* PathOf(const EncodableValue& params) {
  const auto* const map = params.GetIf<EncodableMap>();
  if (!map || map->size() != 1) return nullptr;
  const auto found = map->find("path");
  return found == map->end() ? nullptr : found->second.GetIf<std::string>();
}

// Empty: it is none.
std::string DecodedPath(const std::string& text) {
  std::string path = QByteArray::fromPercentEncoding(QByteArray::fromStdString(text)).toStdString();
  const bool is_path = !path.empty() && path[0] == '/' && path.find('\0') == std::string::npos;
  return is_path ? path : std::string();
}

}  // namespace

DigestServer::DigestServer(std::shared_ptr<cw::ApplicationWrapper> application,
                           std::shared_ptr<flrpc::IServer> server)
    : application_(std::move(application)), server_(std::move(server)) {}

void DigestServer::Run() {
  server_->OnRequest(
      "digest", [this](const std::string&, const EncodableValue& params,
                       std::unique_ptr<flrpc::IReply>&& reply) { Add(params, std::move(reply)); });
  server_->OnRequest("shutdown",
                     [this](const std::string&, const EncodableValue&,
                            std::unique_ptr<flrpc::IReply>&& reply) { ShutDown(*reply); });
  server_->Run();
}

void DigestServer::Add(const EncodableValue& params, std::unique_ptr<flrpc::IReply> reply) {
  const std::string* const path = PathOf(params);
  if (!path || DecodedPath(*path).empty()) {
    return reply->SendError(kInvalidParams,
                            "\"digest\" takes {\"path\": an absolute path, percent-encoded} and "
                            "nothing else",
                            {});
  }
  const bool is_idle = waiting_.empty() && open_.empty();
  waiting_.push_back({*path, std::move(reply), nullptr});
  if (is_idle) PostTurn();
}

// After the answer was sent. Other requests that wait are never answered.
void DigestServer::ShutDown(flrpc::IReply& reply) {
  reply.SendResult({});
  application_->EnqueueTask([application = application_] { application->Exit(0); }, 0);
}

void DigestServer::PostTurn() {
  application_->EnqueueTask(
      [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->TakeTurn();
      },
      0);
}

void DigestServer::TakeTurn() {
  if (!waiting_.empty() && open_.size() < kMaxOpen) OpenNext();
  if (!open_.empty()) ReadNext();
  if (!waiting_.empty() || !open_.empty()) PostTurn();
}

void DigestServer::OpenNext() {
  Job job = std::move(waiting_.front());
  waiting_.pop_front();
  std::string error;
  job.file = FileDigest::Open(DecodedPath(job.path), &error);
  if (!job.file) return job.reply->SendError(kCannotBeRead, error, {});
  open_.push_back(std::move(job));
}

void DigestServer::ReadNext() {
  Job job = std::move(open_.front());
  open_.pop_front();
  std::string error;
  const FileDigest::State state = job.file->ReadSlice(&error);
  TellProgress(&job, state);
  switch (state) {
    case FileDigest::State::kReading:
      open_.push_back(std::move(job));
      break;
    case FileDigest::State::kDone:
      job.reply->SendResult(
          EncodableMap{{"sha256", job.file->GetHex()}, {"size", job.file->GetDone()}});
      break;
    case FileDigest::State::kFailed:
      job.reply->SendError(kCannotBeRead, error, {});
      break;
  }
}

void DigestServer::TellProgress(Job* job, FileDigest::State state) {
  const int64_t done = job->file->GetDone();
  const int64_t step = state == FileDigest::State::kDone ? 1 : kProgressStep;
  if (job->file->GetSize() < kLargeFile || done < job->told + step) return;
  job->told = done;
  server_->SendNotify(
      "progress",
      EncodableMap{{"path", job->path}, {"done", done}, {"size", job->file->GetSize()}});
}

}  // namespace digest
