// A task application for tests of the service: serves through the tables of the libtavo.so that
// --libs-path names, and echoes texts. "flood N" is answered with N numbered texts; "offer NAME"
// registers an intent that answers {"from": "task"}; "open URI" tells the outcome.
#include <dlfcn.h>

#include <cstring>
#include <string>

#include <QCoreApplication>

#include "src/tavo_capi.h"

namespace {

TAVOProcTable top{};
TAVORpcServerProcTable table{};
TAVOIntentManagerProcTable intent_table{};
_TAVORpcServerRef* server = nullptr;
_TAVOIntentManagerRef* intents = nullptr;

void Say(const std::string& text) { table.SendMessage(server, text.c_str()); }

void Offer(const char* name) {
  TAVORegisterIntentSlot slot{};
  slot.size = sizeof slot;
  slot.callback = [](void*, TAVOReplyIntentSlot* reply) {
    static const uint8_t kAnswer[] =
        "\x0d\x01\x07\x04"
        "from\x07\x04task";
    reply->reply(reply->context, kAnswer, sizeof kAnswer - 1);
    reply->release(reply->context);
  };
  Say("offered " + std::to_string(intent_table.RegisterIntent(intents, name, &slot)));
}

void Open(const char* uri) {
  TAVOOpenUriSlot slot{};
  slot.size = sizeof slot;
  slot.callback = [](void*, bool success) { Say(success ? "opened" : "not opened"); };
  intent_table.OpenUri(intents, uri, &slot);
}

void OnMessage(void*, const char* text, unsigned int chunk_id) {
  const std::string request(text);
  table.UnlockResources(server, chunk_id);
  if (request.rfind("offer ", 0) == 0) return Offer(request.c_str() + 6);
  if (request.rfind("open ", 0) == 0) return Open(request.c_str() + 5);
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
  top.IntentManagerProcTableLoad(&intent_table, sizeof intent_table);
  server = top.GetRpcServer(top.Initialize());
  intents = top.GetIntentManager(top.Initialize());
  TAVORpcServerSlots slots{};
  slots.size = sizeof slots;
  slots.OnMessage = OnMessage;
  table.Run(server, &slots);
  return QCoreApplication::exec();
}
