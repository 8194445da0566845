// The whole system in one process: the wrapper's objects over the real service over the platform,
// which is played. There is one raw client of the C tables, and what the tests add: a client and a
// server of the wrapper, joined with each other. Every callback is counted, and may run a hook.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <QCoreApplication>
#include <QJsonObject>

#include "forge/object.h"
#include "src/tavo_capi.h"
#include "tests/support/fake_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"
#include "wrapper/manager_wrapper.h"

namespace test {

// The callbacks of the system.
enum Callback {
  kStarted,
  kDisconnect,
  kMessage,
  kRelease,
  kServerStarted,
  kServerMessage,
  kServerRelease,
  kUri,
  kUriRelease,
  kIntent,
  kIntentAnswer,
  kIntentRelease,
  kConnected,
  kDisconnected,
  kResponse,
  kNotification,
  kServerConnected,
  kRequest,
  kServerNotification,
  kWrapperUri,
  kOther,  // Of what a test does besides its subject.
  kCallbacks
};

class World {
 public:
  explicit World(LogCapture& log);
  ~World();  // Ends everything, and checks that nothing of it is left.
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // A function for any C++ callback. It keeps a token, so that one which is never freed is noticed.
  auto Count(Callback callback) {
    return [this, callback, token = token_](auto&&...) { Call(callback); };
  }

  // The raw side: clients, the server, requests and intents through the C tables.
  bool CreateRaw() { return (raw = top.CreateRpcClient(manager_ref)) != nullptr; }
  bool StartRaw();
  void RunRaw();
  bool SendRaw() { return client_table.SendMessage(raw, kLongText) == FORGE_RESULT_OK; }
  void RunRawServer();
  bool OpenRawUri();
  bool RegisterIntent();
  void InvokeIntent();
  bool HasWholeAnswer() const {
    return intent_answer == QJsonObject{{QStringLiteral("a"), QStringLiteral("b")}};
  }

  // The wrapper's side: a server, and a client that connects to it.
  bool CreateManager();
  void Serve();
  void CreateClient();
  void Handshake();
  void Connect();  // All three.
  void Request(Callback callback);

  // Carries messages and answers until none is on its way, and deletes what is deleted later.
  void Settle();

  // The new lines of the log with this text. The others are lost.
  size_t CountLines(const std::string& part);

  // Checks that no chunk of the raw client and of the server is open.
  void CheckChunks();

  // Checks that a new client of the service starts, talks and ends, and that a request is answered
  // if there is a connection.
  void CheckItWorks();

  static constexpr char kLongText[] = "a text that is longer than what a string holds by itself";
  const QJsonObject message{{QStringLiteral("data"), QString::fromLatin1(kLongText)}};

  FakePlatform platform;
  TAVOProcTable top{};
  TAVORpcClientProcTable client_table{};
  TAVORpcServerProcTable server_table{};
  TAVOIntentManagerProcTable intent_table{};
  _TAVOManagerRef* manager_ref = nullptr;
  _TAVORpcClientRef* raw = nullptr;
  _TAVORpcServerRef* raw_server = nullptr;
  _TAVOIntentManagerRef* raw_intents = nullptr;
  std::shared_ptr<FakeMessaging> raw_channel;
  std::shared_ptr<FakeMessaging> server_channel;
  std::shared_ptr<FakeMessaging> client_channel;
  QJsonObject intent_answer;  // The last one.
  unsigned int chunk = 0;     // The one that the running callback was lent.

  std::unique_ptr<tavo::ManagerWrapper> manager;
  std::unique_ptr<tavo::IntentManager> intents;
  std::shared_ptr<flrpc::IServer> server;
  std::shared_ptr<flrpc::IClient> client;

  std::array<int, kCallbacks> calls{};
  std::array<int, kCallbacks> taken{};  // Slots that the service took over, by their release.
  Callback hooked = kCallbacks;         // Which callback runs the hook.
  std::function<void()> hook;

 private:
  struct Slots;  // The functions of the C slots.

  void Call(Callback callback);
  void CallAndGiveBack(Callback callback, unsigned int lent);
  bool CarryOne();

  LogCapture& log_;
  const uint32_t first_id_ = forge::details::CounterClient::GenerateId();
  const std::shared_ptr<int> token_ = std::make_shared<int>();
};

}  // namespace test
