// A plug-in that holds the wrapper's objects in statics, for the program that ends.
#include <memory>

#include "tests/support/deadline.h"
#include "wrapper/manager_wrapper.h"

namespace {

struct Held {
  std::unique_ptr<tavo::ManagerWrapper> manager;
  std::shared_ptr<flrpc::IClient> client;

  void Fill(const char* directory) {
    manager = tavo::ManagerWrapper::Create(nullptr, directory);
    client = manager->CreateIpcClient("wrapper_task");
    client->Run();
    // Told of the end, wherever that finds it.
    client->OnDisconnected([this](const auto&) { client->SendNotify("poke", 1); });
    test::WaitUntil([this] { return client->IsConnected(); });
  }
};

Held loaded_first;  // Constructed before anything of the service was.

}  // namespace

extern "C" __attribute__((visibility("default"))) void Hold(const char* directory, bool first) {
  if (first) return loaded_first.Fill(directory);
  tavo::ManagerWrapper::Create(nullptr, directory).reset();
  static Held last;  // The service's own statics are there already.
  last.Fill(directory);
}
