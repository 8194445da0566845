// The whole system in one process: the wrapper's objects over the real service over the platform,
// which is played. There is one raw client of the C tables, and what a scenario adds: a client and
// a server of the wrapper, joined with each other. Every callback is counted, and may run a hook.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include <QCoreApplication>
#include <QJsonObject>

#include "forge/object.h"
#include "tests/src/service_fixture.h"
#include "wrapper/manager_wrapper.h"

namespace test {

// The callbacks of the system.
enum Callback {
  // Of what happens once.
  kServerStarted,
  kServerRelease,
  kConnected,
  kDisconnected,
  kResponse,
  kServerConnected,
  kWrapperUri,
  // Of what a callback may make happen again.
  kMayComeAgain,
  kStarted = kMayComeAgain,
  kDisconnect,
  kMessage,
  kRelease,
  kServerMessage,
  kUri,
  kUriRelease,
  kIntent,
  kIntentAnswer,
  kIntentRelease,
  kNotification,
  kRequest,
  kServerNotification,
  kOther,  // Of what a test does besides its subject.
  kCallbacks
};

// A set of callbacks.
template <typename... Callbacks>
constexpr unsigned Calls(Callbacks... callbacks) {
  return (0u | ... | (1u << callbacks));
}

class World : public Service {
 public:
  explicit World(LogCapture& log);
  ~World();  // Ends everything, and checks that nothing of it is left.
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // A function for any C++ callback, which counts as kOther if a hook makes it. It keeps a token,
  // so that one which is never freed is noticed.
  auto Count(Callback callback) {
    const Callback counted = is_in_hook_ ? kOther : callback;
    return [this, counted, token = token_](auto&&...) { Call(counted); };
  }

  // The raw side: clients, the server, requests and intents through the C tables.
  bool CreateRaw() { return (raw = top.CreateRpcClient(manager)) != nullptr; }
  bool StartRaw();
  void RunRaw();
  bool SendRaw() { return client_table.SendMessage(raw, kLongText) == FORGE_RESULT_OK; }
  bool RunRawServer();
  bool OpenRawUri();
  bool RegisterIntent();
  void InvokeIntent();

  // The wrapper's side: a server, and a client that connects to it.
  bool CreateWrapper();
  bool Serve();
  bool CreateClient();
  bool Handshake();
  void Connect();  // All three.
  void Listen(flrpc::IServer& server_side);
  void Listen(flrpc::IClient& client_side);
  void Request(Callback callback);

  // How often each callback was called; and whether all of these were again since.
  using Counts = std::array<int, kCallbacks>;
  Counts GetCalls() const;
  bool WereCalled(unsigned callbacks, const Counts& since) const;

  // Carries messages and answers until none is on its way, and deletes what is deleted later.
  void Settle();

  // The new lines of the log with this text. The others are lost.
  long CountLines(const std::string& part);

  // Checks that no chunk of the raw client and of the server is open, that a new client of the
  // service starts, talks and ends, and that what waits is answered.
  void CheckItWorks();

  static constexpr char kLongText[] = "a text that is longer than what a string holds by itself";
  const QJsonObject message{{QStringLiteral("data"), QString::fromLatin1(kLongText)}};

  _TAVORpcClientRef* raw = nullptr;
  _TAVORpcServerRef* raw_server = nullptr;
  _TAVOIntentManagerRef* raw_intents = nullptr;
  std::shared_ptr<FakeMessaging> raw_channel;
  std::shared_ptr<FakeMessaging> server_channel;
  std::shared_ptr<FakeMessaging> client_channel;
  unsigned int chunk = 0;  // The one that the running callback was lent.

  std::unique_ptr<tavo::ManagerWrapper> wrapper;
  std::unique_ptr<tavo::IntentManager> intents;
  std::shared_ptr<flrpc::IServer> server;
  std::shared_ptr<flrpc::IClient> client;
  std::shared_ptr<void> guest;  // What a test adds; it ends first.

  bool is_done = true;  // What the last scenario that can fail came to.
  std::array<std::atomic<int>, kCallbacks> calls{};
  std::array<std::atomic<int>, kCallbacks>
      taken{};                   // Slots that the service has, by their release.
  Callback hooked = kCallbacks;  // Which callback runs the hook.
  std::function<void()> hook;
  int hook_runs = 3;  // At most so often: a hook may have its own callback called.

 private:
  struct Slots;  // The functions of the C slots.

  void Call(Callback callback);
  bool CarryOne();
  void CheckChunks();

  LogCapture& log_;
  bool is_in_hook_ = false;
  const uint32_t first_id_ = forge::details::CounterClient::GenerateId();
  const std::shared_ptr<int> token_ = std::make_shared<int>();
};

}  // namespace test
