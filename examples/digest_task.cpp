// The task application "digest": answers requests for the SHA-256 of files.
//
// c_launcher starts it. It loads libtavo.so from the directory that --libs-path names, and serves
// through the server table. A request is "<number> <path>", the answer "<number> ok <hex>" or
// "<number> error <cause>". Paths are percent-encoded, so that any file name can be sent.
#include <dlfcn.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>

#include "src/tavo_capi.h"

namespace {

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

// The hexadecimal digest, or nothing with the cause in `error`. Plain stdio, since a file's name
// is any bytes.
QByteArray DigestOf(const QByteArray& path, QByteArray* error) {
  const std::unique_ptr<FILE, CloseFile> file(std::fopen(path.constData(), "rbe"));
  QCryptographicHash hash(QCryptographicHash::Sha256);
  std::vector<char> block(1 << 16);
  size_t size = 0;
  while (file && (size = std::fread(block.data(), 1, block.size(), file.get())) > 0) {
    hash.addData(block.data(), static_cast<int>(size));
  }
  if (file && !std::ferror(file.get())) return hash.result().toHex();
  *error = std::strerror(errno);
  return {};
}

QByteArray AnswerTo(const QByteArray& request) {
  const int blank = request.indexOf(' ');
  QByteArray error;
  const QByteArray digest =
      DigestOf(QByteArray::fromPercentEncoding(request.mid(blank + 1)), &error);
  return request.left(blank) + (digest.isEmpty() ? " error " + error : " ok " + digest);
}

class DigestServer {
 public:
  bool Load(const QString& libs_path) {
    const QByteArray path = QFile::encodeName(libs_path + QStringLiteral("/libtavo.so"));
    void* library = dlopen(path.constData(), RTLD_NOW);
    const auto load =
        library
            ? reinterpret_cast<decltype(&TAVOProcTableLoad)>(dlsym(library, "TAVOProcTableLoad"))
            : nullptr;
    return load && load(&top_, sizeof top_) == FORGE_RESULT_OK && top_.RpcServerProcTableLoad &&
           top_.RpcServerProcTableLoad(&table_, sizeof table_) == FORGE_RESULT_OK;
  }

  void Run() {
    server_ = top_.GetRpcServer(top_.Initialize());
    TAVORpcServerSlots slots{};
    slots.size = sizeof slots;
    slots.user_data = this;
    slots.OnMessage = [](void* self, const char* text, unsigned int chunk_id) {
      static_cast<DigestServer*>(self)->OnMessage(text, chunk_id);
    };
    table_.Run(server_, &slots);
  }

 private:
  void OnMessage(const char* text, unsigned int chunk_id) {
    const QByteArray request(text);
    table_.UnlockResources(server_, chunk_id);
    table_.SendMessage(server_, AnswerTo(request).constData());
  }

  TAVOProcTable top_{};
  TAVORpcServerProcTable table_{};
  _TAVORpcServerRef* server_ = nullptr;
};

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  QCommandLineParser parser;
  const QCommandLineOption libs_path(QStringLiteral("libs-path"),
                                     QStringLiteral("Where libtavo.so lies."),
                                     QStringLiteral("directory"));
  parser.addHelpOption();
  parser.addOption(libs_path);
  parser.process(application);

  DigestServer server;
  if (!server.Load(parser.value(libs_path))) {
    const char* cause = dlerror();
    std::fprintf(stderr, "digest: libtavo.so cannot be used: %s\n", cause ? cause : "no tables");
    return 1;
  }
  server.Run();
  return QCoreApplication::exec();
}
