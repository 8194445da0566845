// A program that ends with the code 42, in the shape that its first argument names, while the
// service is in use. The others name the directory of libtavo.so, and the plug-in.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>
#include <thread>

#include <QCoreApplication>

#include "src/tavo_capi.h"
#include "tests/support/deadline.h"

namespace {

constexpr int kCode = 42;

const char* directory;
const char* plugin;

// The tables of a library that is loaded by path. Nothing here has a destructor: callbacks come
// until the very end.
struct Service {
  void* library;
  TAVOProcTable top;
  TAVORpcClientProcTable clients;
  TAVORpcServerProcTable servers;
  TAVOIntentManagerProcTable intents;
  _TAVOManagerRef* manager;

  void Load() {
    library = dlopen((std::string(directory) + "/libtavo.so").c_str(), RTLD_NOW);
    const auto load =
        reinterpret_cast<decltype(&TAVOProcTableLoad)>(dlsym(library, "TAVOProcTableLoad"));
    load(&top, sizeof top);
    top.RpcClientProcTableLoad(&clients, sizeof clients);
    top.RpcServerProcTableLoad(&servers, sizeof servers);
    top.IntentManagerProcTableLoad(&intents, sizeof intents);
    manager = top.Initialize();
  }
} service;

struct Application {
  int argc = 1;
  char name[5] = "exit";
  char* argv[2] = {name, nullptr};
  QCoreApplication application{argc, argv};
};

// Each comes back to the service, also when that is about to end.
struct Client {
  _TAVORpcClientRef* ref;
  int messages;
  void (*on_message)();

  static void OnStarted(void*, int, const char*, unsigned int) {}
  static void OnDisconnect(void* data, int, const char*, unsigned int) {
    service.clients.SendMessage(static_cast<Client*>(data)->ref, "late");
  }
  static void OnMessage(void* data, const char*, unsigned int chunk) {
    auto* self = static_cast<Client*>(data);
    service.clients.UnlockResources(self->ref, chunk);
    ++self->messages;
    if (self->on_message) self->on_message();
  }
  static void OnRelease(void* data) { service.clients.Release(static_cast<Client*>(data)->ref); }

  void Start() {
    ref = service.top.CreateRpcClient(service.manager);
    TAVORpcClientSlots slots{sizeof slots, OnStarted, OnDisconnect, OnMessage, OnRelease, this};
    service.clients.StartTask(ref, "service_task", directory, &slots);
  }
  void Talk() {
    Start();
    test::WaitUntil([this] { return service.clients.SendMessage(ref, "hello") == 0; });
    test::WaitUntil([this] { return messages > 0; });
  }
} talking, starting, stopping;

void OpenUri() {
  TAVOOpenUriSlot slot{};
  slot.size = sizeof slot;
  slot.callback = [](void*, bool) { service.top.Release(service.manager); };
  service.intents.OpenUri(service.top.GetIntentManager(service.manager), "x:", &slot);
}

void OfferIntent() {
  TAVORegisterIntentSlot slot{};
  slot.size = sizeof slot;
  service.intents.RegisterIntent(service.top.GetIntentManager(service.manager), "left", &slot);
}

// Everything at once: clients that run, start and stop, a URI and an intent.
void UseAll() {
  talking.Talk();
  stopping.Talk();
  service.clients.Release(stopping.ref);
  starting.Start();
  OpenUri();
  OfferIntent();
}

// The end of a task: within a message of its starter, while answers are on their way.
int Serve() {
  const Application application;
  service.Load();
  TAVORpcServerSlots slots{};
  slots.size = sizeof slots;
  slots.OnMessage = [](void*, const char*, unsigned int) {
    const auto server = service.top.GetRpcServer(service.manager);
    for (int i = 0; i < 1000; ++i) service.servers.SendMessage(server, "answer");
    exit(kCode);
  };
  service.servers.Run(service.top.GetRpcServer(service.manager), &slots);
  return QCoreApplication::exec();
}

void Hold(bool first, bool stays = true) {
  void* const loaded = dlopen(plugin, RTLD_NOW);
  reinterpret_cast<void (*)(const char*, bool)>(dlsym(loaded, "Hold"))(directory, first);
  if (!stays) dlclose(loaded);
}

void SendWhatStaysUnsent() {
  service.clients.SendMessage(talking.ref, "flood 100000");
  service.clients.SendMessage(talking.ref, std::string(8 << 20, 'x').c_str());
}

void ExitInACallback() {
  talking.on_message = [] { exit(kCode); };
  service.clients.SendMessage(talking.ref, "leave");
  QCoreApplication::exec();
}

void ExitOnAThread() {
  std::thread([] { exit(kCode); }).detach();
  QCoreApplication::exec();
}

// There is an application object that goes when the shape returns. All is in use, but with Static.
const std::map<std::string, void (*)()> kShapes = {
    {"MainReturns", [] {}},
    {"ExitInACallback", ExitInACallback},
    {"ExitOnAThread", ExitOnAThread},
    {"StaticBefore", [] { Hold(true); }},
    {"StaticAfter", [] { Hold(false); }},
    {"PluginUnloaded", [] { Hold(true, false); }},
    {"LibraryClosed", [] { dlclose(service.library); }},
    {"MessageOnItsWay", SendWhatStaysUnsent},
    {"ManagerReleased", [] { service.top.Release(service.manager); }},
    {"QuickExit", [] { quick_exit(kCode); }},
};

}  // namespace

int main(int, char** argv) {
  const std::string shape = argv[1];
  directory = argv[2];
  plugin = argv[3];
  if (shape == "Task") return Serve();
  if (shape == "NoApplication") {
    service.Load();
    starting.Start();
    OpenUri();
    return kCode;
  }
  if (shape == "ApplicationOutlivesAll") {
    static const Application application;
    service.Load();
    UseAll();
    return kCode;
  }
  const Application application;
  service.Load();
  if (shape.rfind("Static", 0) != 0) UseAll();
  kShapes.at(shape)();
  return kCode;
}
