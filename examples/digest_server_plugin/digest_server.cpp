#include "digest_server.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include <QCryptographicHash>
#include <QFile>

#include "../digest_plugin/digest_messages.h"

namespace digest {
namespace {

using tavo::kit::Request;

constexpr int kMaxThreads = 32;  // And files that are open: there may be many requests.
constexpr int kBlock = 1 << 16;
constexpr int64_t kLargeFile = int64_t{8} << 20;     // From there on progress is told,
constexpr int64_t kProgressStep = int64_t{4} << 20;  // that often.

// Opens a regular file, or throws. Never waits for the writer of a pipe.
void Open(const std::string& path, QFile* file) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) throw std::runtime_error(std::generic_category().message(errno));
  struct stat status {};
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
    file->open(descriptor, QIODevice::ReadOnly | QIODevice::Unbuffered, QFile::AutoCloseHandle);
    return;
  }
  close(descriptor);
  const bool is_directory = S_ISDIR(status.st_mode);
  throw std::runtime_error(is_directory ? std::generic_category().message(EISDIR)
                                        : "it is not a regular file");
}

// Runs on a thread of the pool.
void MakeDigest(const std::string& path, const Request<Digest>& request) {
  QFile file;
  Open(path, &file);
  QCryptographicHash hash(QCryptographicHash::Sha256);
  std::vector<char> block(kBlock);
  int64_t done = 0;
  int64_t told = 0;
  while (!request.IsCancelled()) {
    const int64_t size = file.read(block.data(), kBlock);
    if (size < 0) throw std::runtime_error(file.errorString().toStdString());
    hash.addData(block.data(), static_cast<int>(size));
    done += size;
    if (file.size() >= kLargeFile && done >= told + (size == 0 ? 1 : kProgressStep)) {
      request.Progress(told = done);
    }
    if (size == 0) return request.Finish({hash.result().toHex().toStdString(), done});
  }
}

}  // namespace

DigestServer::DigestServer(const std::shared_ptr<cw::ApplicationWrapper>& application,
                           const std::shared_ptr<flrpc::IServer>& server)
    : responder_(tavo::kit::Responder::Create(server)) {
  pool_.setMaxThreadCount(kMaxThreads);
  responder_->Handle("digest", [this](const FileName& name, const Request<Digest>& request) {
    auto path = QByteArray::fromPercentEncoding(QByteArray::fromStdString(name.path)).toStdString();
    if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos) {
      return request.Fail(tavo::kit::kInvalidParams,
                          "params.path: an absolute path, percent-encoded, is expected");
    }
    pool_.start([path = std::move(path), request] {
      try {
        MakeDigest(path, request);
      } catch (const std::exception& error) {
        request.Fail(kCannotBeRead, error.what());
      }
    });
  });
  responder_->Handle(
      "shutdown", [application](const cw::EncodableValue&, const Request<std::monostate>& request) {
        request.Finish({});
        application->EnqueueTask([application] { application->Exit(0); }, 0);
      });
  responder_->Run();
}

}  // namespace digest
