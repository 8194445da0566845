// The task application "digest": answers requests for the SHA-256 of files.
//
// It is started by c_launcher, loads libtavo.so from the directory that --libs-path names, and
// serves through the server table. A request is "<number> <path>", the answer "<number> ok <hex>"
// or "<number> error <cause>". Paths are percent-encoded, so that any file name can be sent.
#include <cstdio>
#include <dlfcn.h>
#include <string>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

#include "src/tavo_capi.h"

namespace {

QByteArray AnswerTo(const QByteArray& request) {
  const int blank = request.indexOf(' ');
  const QByteArray number = request.left(blank);
  QFile file(QFile::decodeName(QByteArray::fromPercentEncoding(request.mid(blank + 1))));
  if (QFileInfo(file).isDir()) return number + " error Is a directory";
  QCryptographicHash hash(QCryptographicHash::Sha256);
  if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file)) {
    return number + " error " + file.errorString().toUtf8();
  }
  return number + " ok " + hash.result().toHex();
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
