// The whole system in one process: the wrapper's objects over the real service over the platform,
// which is played. There is one raw client of the C tables, and what a scenario adds: a client and
// a server of the wrapper, joined with each other. Every callback is counted, and may run a hook.
#pragma once

#include <atomic>
#include <climits>
#include <filesystem>
#include <functional>

#include <QCoreApplication>

#include "forge/library.h"
#include "tests/src/service_fixture.h"
#include "wrapper/manager_wrapper.h"

namespace test {

// The operations without parameters are what the system can be asked to do. What can fail sets
// is_done. In a callback they may find the world in any state.
class World : private LogCapture, public Service {
 public:
  World() {
    const auto library = forge::Library::Create(TAVO_TEST_SERVICE_LIBRARY);
    *static_cast<TAVOProcTable*>(library->ResolveImpl("test_table")) = top;
    CreateWrapper();
    raw_server = top.GetRpcServer(manager);
    raw_intents_ = top.GetIntentManager(manager);
    RegisterIntent();
    StartRaw();
    Started();
  }

  // Ends everything, and checks that nothing of it is left.
  ~World() {
    hooked = INT_MAX;
    DropWrapper();
    wrapper_.reset();
    ReleaseManager();
    Settle();
    platform.intents.clear();
    EXPECT_EQ(taken_, released) << "Not each slot was released once.";
    EXPECT_EQ(1, token_.use_count()) << "A callback was not freed.";
    for (const auto& task : platform.tasks) EXPECT_FALSE(task->alive);
    for (const auto& messaging : platform.messagings) EXPECT_FALSE(messaging->object);
    TakeText();
  }

  // Functions for any C++ callback. They keep a token, so that one which is never freed is noticed.
  auto Any() {
    return [this, token = token_](auto&&...) { Call(); };
  }
  auto Once() {
    const auto was_called = std::make_shared<bool>(false);
    return [any = Any(), was_called](auto&&...) {
      EXPECT_FALSE(std::exchange(*was_called, true));
      any();
    };
  }

  // ---- The manager and the raw client and server ----

  void Nothing() {}
  void Throw() {
    GiveBackTwice();
    throw std::runtime_error("unhappy");
  }
  void GetParts() { is_done = top.GetIntentManager(manager) && top.GetRpcServer(manager); }
  void ReleaseManager() {
    top.Release(manager);
    is_done = !client_ || client_->HasConnectionFailed();
  }
  void StartRaw() {
    TAVORpcClientSlots slots{sizeof slots, Lent, Lent, Lent, On<&World::released>, this};
    raw = top.CreateRpcClient(manager);
    Take(client_table.StartTask(raw, "raw", "/libs", &slots));
  }
  void Started() { platform.tasks.back()->Started(); }
  void FailStart() {
    platform.tasks.back()->Started({1, QStringLiteral("a cause that is a long text")});
    is_done = !client_ || client_->HasConnectionFailed();
  }
  void Send() { is_done = client_table.SendMessage(raw, kText) == FORGE_RESULT_OK; }
  void Receive() { FindChannel(kRawPath).Receive(message_); }
  void Release() {
    client_table.Release(raw);
    client_table.Release(raw);
  }
  void RunServer() {
    TAVORpcServerSlots slots{sizeof slots, On<&World::server_starts>, Lent, On<&World::released>,
                             this};
    const int before = server_starts;
    server_table.Run(raw_server, &slots);
    Take(server_starts > before ? FORGE_RESULT_OK : FORGE_RESULT_WRONG_STATE);
  }
  void ServerSend() { is_done = server_table.SendMessage(raw_server, kText) == FORGE_RESULT_OK; }
  void ServerReceive() { FindChannel(kServerPath).Receive(message_); }
  void RunServerAndOpenUri() {
    RunServer();
    OpenUri();
  }
  void GiveBackTwice() {
    const unsigned int own = chunk.exchange(0);
    for (const unsigned int id : {own, own, 4711u, 0u}) GiveBack(raw, id);
  }

  // ---- Intents ----

  void OpenUri() {
    TAVOOpenUriSlot slot{sizeof slot, On<&World::uris>, On<&World::released>, this};
    Take(intent_table.OpenUri(raw_intents_, kText, &slot));
  }
  void RegisterIntent() {
    TAVORegisterIntentSlot slot{sizeof slot, OnIntent, On<&World::released>, this};
    Take(intent_table.RegisterIntent(raw_intents_, kText, &slot));
  }
  void InvokeIntent() {
    const auto handler = platform.intents[text_];  // It may be replaced while it runs.
    handler({}, [this](const QJsonObject& answer) {
      if (answer.isEmpty()) return;  // For want of memory.
      EXPECT_EQ(QStringLiteral("b"), answer.value(QStringLiteral("a")).toString());
      Call();
    });
  }

  // ---- The wrapper's client and server ----

  void CreateWrapper() {
    const std::filesystem::path library = TAVO_TEST_SERVICE_LIBRARY;
    wrapper_ = tavo::ManagerWrapper::Create(nullptr, library.parent_path());
    is_done = wrapper_ != nullptr;
  }
  void CreateClient() {
    client_ = wrapper_->CreateIpcClient("worker");
    if (client_) ListenAndRun(*client_);
  }
  void Connect() {
    // The service takes the first server, and no other.
    if (!server_ || !FindChannel(kServerPath).object) server_ = wrapper_->CreateRpcServer();
    if (server_) ListenAndRun(*server_);
    CreateClient();
    Started();
    Settle();
    is_done = client_ && client_->IsConnected();
  }
  void Request() {
    if (client_) client_->SendRequest("echo", std::string(kText), Once());
  }
  void ConnectAndRequest() {
    Connect();
    Request();
    Request();
  }
  void DropWrapper() {
    if (server_) raw_server = nullptr;  // What comes to it from now on is not given back.
    client_.reset();
    server_.reset();
  }

  // ---- For the tests ----

  // Carries messages and answers until none is on its way, and deletes what is deleted later.
  void Settle() {
    do {
      for (size_t i = 0; i < platform.tasks.size(); ++i) platform.tasks[i]->Stopped();
    } while (Carry(kClientPath, kServerPath) || Carry(kServerPath, kClientPath) || AnswerUri());
    if (!QCoreApplication::instance()) return;
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }
  void Do(void (World::*operation)()) {
    is_done = true;
    (this->*operation)();
    Settle();
  }

  // Checks that a new client of the service starts, talks and ends, and that what waits is
  // answered.
  void CheckItWorks() {
    hooked = INT_MAX;
    Settle();
    calls = 0;
    StartRaw();
    Started();
    Send();
    EXPECT_TRUE(is_done);
    Receive();
    Release();
    Settle();
    EXPECT_EQ(5, calls);  // The client is told of two disconnects.
    bool is_answered = !client_ || !server_ || !client_->IsConnected();
    if (!is_answered) client_->SendRequest("echo", {}, [&](const auto&) { is_answered = true; });
    Settle();
    EXPECT_TRUE(is_answered);
  }

  using OutputCapture::TakeText;

  // Chunk ids are unique: one of the two knows it.
  void GiveBack(_TAVORpcClientRef* owner, unsigned int id) {
    client_table.UnlockResources(owner, id);
    server_table.UnlockResources(raw_server, id);
  }

  static constexpr char kText[] = "a text that is longer than what a string holds by itself";

  _TAVORpcClientRef* raw = nullptr;
  std::atomic<_TAVORpcServerRef*> raw_server{nullptr};
  std::atomic<unsigned int> chunk{0};  // The one that the running callback was lent.
  std::atomic<bool> is_done{true};     // What the last operation that can fail came to.

  std::atomic<int> calls{0};  // Of all callbacks; those below are some of them.
  std::atomic<int> server_starts{0};
  std::atomic<int> uris{0};
  std::atomic<int> released{0};
  int hooked = INT_MAX;           // From this call on the hook is run,
  std::atomic<int> hook_runs{3};  // so often: a hook may have further callbacks called.
  std::function<void()> hook;

 private:
  static constexpr char kRawPath[] = "/run/raw";
  static constexpr char kClientPath[] = "/run/worker";
  static constexpr char kServerPath[] = "";

  void Call() {
    if (++calls >= hooked && hook_runs-- > 0) hook();
  }
  void Take(ForgeResult result) {
    taken_ += result == FORGE_RESULT_OK;
    is_done = result == FORGE_RESULT_OK;
  }

  // The functions of the C slots. The last argument of some is a chunk, which is given back when
  // they end, unless somebody has taken it; they come on the event loop's thread.
  template <std::atomic<int> World::*kCount, typename... Arguments>
  static void On(void* self, Arguments...) {
    ++(static_cast<World*>(self)->*kCount);
    static_cast<World*>(self)->Call();
  }
  template <typename... Arguments>
  static void Lent(void* self, Arguments... arguments) {
    World& world = *static_cast<World*>(self);
    _TAVORpcClientRef* const owner = world.raw;
    const auto id = std::get<sizeof...(arguments) - 1>(std::tie(arguments...));
    const unsigned int outer = world.chunk.exchange(id);
    world.Call();
    world.GiveBack(owner, world.chunk.exchange(outer));
  }
  static void OnIntent(void* self, TAVOReplyIntentSlot* reply) {
    constexpr uint8_t kMap[] = {13, 1, 7, 1, 'a', 7, 1, 'b'};
    const TAVOReplyIntentSlot kept = *reply;
    static_cast<World*>(self)->Call();
    kept.reply(kept.context, kMap, sizeof kMap);
    kept.release(kept.context);
  }

  void ListenAndRun(flrpc::IServer& server) {
    server.OnConnected(Once());
    server.OnRequest("echo", [this, any = Any()](const auto&, const auto&, auto&& reply) {
      const auto kept = std::move(reply);  // The handler may be replaced while it runs.
      if (server_) server_->SendNotify("tell", kText);
      any();
      kept->SendResult(kText);
    });
    server.Run();
  }
  void ListenAndRun(flrpc::IClient& client) {
    client.OnConnected(Once());
    client.OnDisconnected(Once());
    client.OnNotify("tell", Any());
    client.Run();
  }

  // The newest one with that path; if there is none, one that leads nowhere.
  FakeMessaging& FindChannel(const char* path) {
    static FakeMessaging nowhere;
    FakeMessaging* found = &nowhere;
    for (const auto& channel : platform.messagings) {
      if (channel->path == QLatin1String(path)) found = channel.get();
    }
    return *found;
  }
  bool Carry(const char* from, const char* to) {
    const auto texts = std::exchange(FindChannel(from).sent, {});
    for (const QJsonObject& text : texts) FindChannel(to).Receive(text);
    return !texts.empty();
  }
  bool AnswerUri() {
    const bool is_asked = !std::exchange(platform.invocations, {}).empty();
    if (is_asked) platform.ReplyToIntent(0);
    return is_asked;
  }

  const QString text_ = QString::fromLatin1(kText);
  const QJsonObject message_{{QStringLiteral("data"), text_}};
  const std::shared_ptr<int> token_ = std::make_shared<int>();

  _TAVOIntentManagerRef* raw_intents_ = nullptr;
  std::unique_ptr<tavo::ManagerWrapper> wrapper_;
  std::shared_ptr<flrpc::IServer> server_;
  std::shared_ptr<flrpc::IClient> client_;
  std::atomic<int> taken_{0};  // Slots that the service has.
};

// What the tests of failing allocations do with memory that ends, and those of re-entrancy in each
// of the callbacks.
enum Trait : unsigned {
  kPlain = 0,
  kIsSure = 1,    // It is done whatever fails,
  kIsTold = 2,    // and so are the callbacks.
  kMayThrow = 4,  // To its C++ caller.
  kIsFinal = 8,   // What failed cannot be done again.
};

struct Scenario {
  const char* name;
  unsigned traits;
  int calls;  // So many callbacks come if it succeeds.
  void (World::*act)();
  void (World::*prepare)() = &World::Nothing;
};

inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

inline const Scenario kScenarios[]{
    {"GetParts", kPlain, 0, &World::GetParts, &World::ReleaseManager},
    {"ReleaseManager", kIsSure | kIsTold, 5, &World::ReleaseManager, &World::RunServerAndOpenUri},
    {"StartTask", kPlain, 0, &World::StartRaw},
    {"TaskStarted", kIsSure | kIsTold, 1, &World::Started, &World::StartRaw},
    {"TaskFailed", kIsSure | kIsTold, 1, &World::FailStart, &World::StartRaw},
    {"ClientSend", kPlain, 0, &World::Send},
    {"ClientMessage", kPlain, 1, &World::Receive},
    {"ClientRelease", kIsSure | kIsTold, 3, &World::Release},
    {"ServerRun", kPlain, 1, &World::RunServer},
    {"ServerSend", kPlain, 0, &World::ServerSend, &World::RunServer},
    {"ServerMessage", kPlain, 1, &World::ServerReceive, &World::RunServer},
    {"GiveBack", kPlain, 0, &World::GiveBackTwice, &World::RunServer},
    {"OpenUri", kPlain, 4, &World::OpenUri, &World::OpenUri},
    {"RegisterIntent", kPlain, 1, &World::RegisterIntent},
    {"InvokeIntent", kMayThrow, 2, &World::InvokeIntent},
    {"CreateWrapper", kMayThrow, 3, &World::CreateWrapper},
    {"Connect", kMayThrow | kIsFinal, 2, &World::Connect},
    {"FailedConnection", kIsSure, 1, &World::FailStart, &World::CreateClient},
    {"Request", kMayThrow, 3, &World::Request, &World::Connect},
    {"Disconnect", kIsSure, 6, &World::ReleaseManager, &World::ConnectAndRequest},
    {"DropWrapper", kPlain, 0, &World::DropWrapper, &World::ConnectAndRequest},
};

}  // namespace test
