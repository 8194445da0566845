// A task application for tests of the service: serves through the tables of the libtavo.so that
// --libs-path names, and echoes texts. "flood N" is answered with N numbered texts.
#include <dlfcn.h>

#include <cstring>
#include <string>

#include <QCoreApplication>

#include "src/tavo_capi.h"

namespace {

TAVOProcTable top{};
TAVORpcServerProcTable table{};
_TAVORpcServerRef* server = nullptr;

void OnMessage(void*, const char* text, unsigned int chunk_id) {
  const std::string request(text);
  table.UnlockResources(server, chunk_id);
  if (request.rfind("flood ", 0) != 0) {
    table.SendMessage(server, request.c_str());
    return;
  }
  const int count = std::stoi(request.substr(6));
  for (int i = 0; i < count; ++i) table.SendMessage(server, std::to_string(i).c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || std::strcmp(argv[1], "--libs-path") != 0) return 2;
  const QCoreApplication application(argc, argv);
  void* library = dlopen((std::string(argv[2]) + "/libtavo.so").c_str(), RTLD_NOW);
  if (!library) return 3;
  const auto load =
      reinterpret_cast<decltype(&TAVOProcTableLoad)>(dlsym(library, "TAVOProcTableLoad"));
  load(&top, sizeof top);
  top.RpcServerProcTableLoad(&table, sizeof table);
  server = top.GetRpcServer(top.Initialize());
  TAVORpcServerSlots slots{};
  slots.size = sizeof slots;
  slots.OnMessage = OnMessage;
  table.Run(server, &slots);
  return QCoreApplication::exec();
}
