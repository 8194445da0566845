// A plug-in that uses the service in every way that there is, for the program that ends.
#include <unistd.h>

#include <csignal>
#include <thread>

#include "tests/support/deadline.h"
#include "wrapper/manager_wrapper.h"

namespace {

using Client = _TAVORpcClientRef*;

// Nothing here has a destructor: callbacks come until the very end.
TAVOProcTable top;
TAVORpcClientProcTable clients;
TAVORpcServerProcTable servers;
TAVOIntentManagerProcTable intents;

// Each of its callbacks comes back to the service, also when that is about to end.
void StartTask(const char* folder) {
  const Client client = top.CreateRpcClient(top.Initialize());
  TAVORpcClientSlots slots{};
  slots.size = sizeof slots;
  slots.user_data = client;
  slots.OnDisconnect = [](void* data, int, const char*, unsigned) {
    clients.SendMessage(static_cast<Client>(data), "late");
  };
  slots.Release = [](void* data) { clients.Release(static_cast<Client>(data)); };
  clients.StartTask(client, "service_task", folder, &slots);
}

// Everything at once: clients that run, start and stop, a URI and an intent.
struct Held {
  void Fill(const char* folder) {
    manager = tavo::ManagerWrapper::Create(nullptr, folder);
    manager->GetIntentManager()->OpenUri("x:", [this](bool) { manager.reset(); });
    StartTask(folder);
    if (!QCoreApplication::instance()) return;
    client = manager->CreateIpcClient("wrapper_task");
    client->OnDisconnected([this](const auto&) { client->SendNotify("poke", 1); });
    client->Run();
    auto stopping = manager->CreateIpcClient("wrapper_task");
    stopping->Run();
    test::WaitUntil([&] { return stopping->IsConnected() && client->IsConnected(); });
    stopping.reset();
    // Its channel is deleted by the loop, which does not run again in every shape.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    StartTask(folder);
    // The last of all: a process that does not clean up closes it first, and the tasks' supervisors
    // remove its file when they see their own connections end.
    TAVORegisterIntentSlot slot{sizeof slot, nullptr, nullptr, nullptr};
    intents.RegisterIntent(top.GetIntentManager(top.Initialize()), "left", &slot);
  }

  std::unique_ptr<tavo::ManagerWrapper> manager;
  std::shared_ptr<flrpc::IClient> client;
};

Held loaded_first;  // Constructed before anything of the service was.
Held* held;         // Not destroyed, but for those that are static.

void Leave() { exit(42); }

// The end of a task: within a message of its starter, while answers are on their way.
void Serve() {
  TAVORpcServerSlots slots{};
  slots.size = sizeof slots;
  slots.OnMessage = [](void*, const char*, unsigned) {
    const auto server = top.GetRpcServer(top.Initialize());
    for (int i = 0; i < 1000; ++i) servers.SendMessage(server, "answer");
    Leave();
  };
  servers.Run(top.GetRpcServer(top.Initialize()), &slots);
  QCoreApplication::exec();
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void Run(const char* name, const char* folder) {
  const std::string shape = name;
  TAVOProcTableLoad(&top, sizeof top);
  top.RpcClientProcTableLoad(&clients, sizeof clients);
  top.RpcServerProcTableLoad(&servers, sizeof servers);
  top.IntentManagerProcTableLoad(&intents, sizeof intents);
  if (shape == "Task") return Serve();
  if (shape == "StaticAfter") {  // The service's own statics are there already.
    top.Release(top.Initialize());
    static Held constructed_last;
    held = &constructed_last;
  } else {
    held = shape == "StaticBefore" || shape == "PluginUnloaded" ? &loaded_first : new Held;
  }
  held->Fill(folder);
  if (shape == "ManagerReleased") held->manager.reset();
  if (shape == "MessageOnItsWay") held->client->SendNotify("poke", std::string(8 << 20, 'x'));
  if (shape == "QuickExit") quick_exit(42);
  if (shape == "ExitOnAThread") std::thread(Leave).detach();
  if (shape == "ExitInACallback") {
    held->client->OnNotify("poked", [](const auto&) { Leave(); });
    held->client->SendNotify("poke", 1);
  }
  if (shape == "ExitInASignalHandler") {
    std::signal(SIGTERM, [](int) { _exit(42); });
    std::raise(SIGTERM);
  }
  if (shape.rfind("Exit", 0) == 0) QCoreApplication::exec();
}
