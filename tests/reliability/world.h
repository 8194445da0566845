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
    EXPECT_EQ(taken_, released_) << "Not each slot was released once.";
    EXPECT_EQ(1, token_.use_count()) << "A callback was not freed.";
    for (const auto& task : platform.tasks) EXPECT_FALSE(task->alive);
    for (const auto& messaging : platform.messagings) EXPECT_FALSE(messaging->object);
    TakeText();
  }

  // A function for any C++ callback. It keeps a token: one that is never freed is noticed.
  auto Any() {
    return [this, token = token_](auto&&...) { Call(); };
  }

  // ---- The manager and the raw client and server ----

  void Nothing() {}
  void Throw() {
    GiveBack();
    throw std::runtime_error("unhappy");
  }
  void GetParts() { is_done = top.GetIntentManager(manager) && top.GetRpcServer(manager); }
  void ReleaseManager() {
    top.Release(manager);
    is_done = !client_ || client_->HasConnectionFailed();
  }
  void StartRaw() {
    TAVORpcClientSlots slots{sizeof slots, Lent, Lent, Lent, On<&World::released_>, this};
    raw = top.CreateRpcClient(manager);
    Take(client_table.StartTask(raw, "raw", "/libs", &slots));
  }
  void Started() { platform.tasks.back()->Started(); }
  void FailStart() {
    platform.tasks.back()->Started({1, QStringLiteral("a cause that is a long text")});
    is_done = !client_ || client_->HasConnectionFailed();
  }
  void Send() { is_done = client_table.SendMessage(raw, kText) == FORGE_RESULT_OK; }
  void Receive() { FindChannel("/run/raw").Receive(message_); }
  void Release() {
    client_table.Release(raw);
    client_table.Release(raw);
  }
  void RunServer() {
    TAVORpcServerSlots slots{sizeof slots, On<&World::taken_>, Lent, On<&World::released_>, this};
    const int before = taken_;
    server_table.Run(raw_server, &slots);
    is_done = taken_ > before;
  }
  void ServerSend() { is_done = server_table.SendMessage(raw_server, kText) == FORGE_RESULT_OK; }
  void ServerReceive() { FindChannel(kServerPath).Receive(message_); }
  // Gives the chunk back that the running callback was lent, and once more. Chunk ids are unique:
  // one of the two knows it.
  void GiveBack() {
    const unsigned int id = chunk.exchange(0);
    for (int i = 0; i < 2; ++i) {
      client_table.UnlockResources(raw, id);
      server_table.UnlockResources(raw_server, id);
    }
  }
  void OpenUri() {
    TAVOOpenUriSlot slot{sizeof slot, [](void* self, bool) { static_cast<World*>(self)->Call(); },
                         On<&World::released_>, this};
    Take(intent_table.OpenUri(raw_intents_, kText, &slot));
  }

  // ---- The wrapper's client and server ----

  void CreateWrapper() {
    const std::filesystem::path library = TAVO_TEST_SERVICE_LIBRARY;
    wrapper_ = tavo::ManagerWrapper::Create(nullptr, library.parent_path());
    is_done = wrapper_ != nullptr;
  }
  void CreateClient() {
    client_ = wrapper_->CreateIpcClient("worker");
    if (!client_) return;
    client_->OnConnected(Any());
    client_->OnDisconnected(Any());
    client_->OnNotify("tell", Any());
    client_->Run();
  }
  void Connect() {
    // The service takes the first server, and no other.
    if (!server_ || !FindChannel(kServerPath).object) server_ = wrapper_->CreateRpcServer();
    if (server_) RunServer(*server_);
    CreateClient();
    Started();
    Settle();
    is_done = client_ && client_->IsConnected();
  }
  void Request() {
    if (!client_) Connect();
    if (!client_) return;
    client_->SendRequest("echo", std::string(kText), [this, any = Any()](const auto&) {
      ++answers;
      any();
    });
  }
  void DropWrapper() {
    client_.reset();
    server_.reset();
  }

  // True if there was a message or an answer on its way.
  bool Carry() {
    bool is_busy = !platform.Take(platform.invocations).empty();
    if (is_busy) platform.ReplyToIntent(0);
    for (const bool is_up : {true, false}) {
      const auto texts = platform.Take(FindChannel(is_up ? kClientPath : kServerPath).sent);
      FakeMessaging& peer = FindChannel(is_up ? kServerPath : kClientPath);
      for (const QJsonObject& text : texts) peer.Receive(text);
      is_busy |= !texts.empty();
    }
    return is_busy;
  }

  // Carries messages and answers until none is on its way, and deletes what is deleted later.
  void Settle() {
    do {
      for (size_t i = 0; i < platform.tasks.size(); ++i) platform.tasks[i]->Stopped();
    } while (Carry());
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
    for (const auto operation :
         {&World::StartRaw, &World::Started, &World::Send, &World::Receive, &World::Release}) {
      Do(operation);
      EXPECT_TRUE(is_done);
    }
    EXPECT_EQ(5, calls);  // The client is told of two disconnects.
    bool is_answered = !client_ || !server_ || !client_->IsConnected();
    if (!is_answered) client_->SendRequest("echo", {}, [&](const auto&) { is_answered = true; });
    Settle();
    EXPECT_TRUE(is_answered);
  }

  using OutputCapture::TakeText;

  static constexpr char kText[] = "a text that is longer than what a string holds by itself";

  _TAVORpcClientRef* raw = nullptr;
  std::atomic<_TAVORpcServerRef*> raw_server{nullptr};
  std::atomic<unsigned int> chunk{0};  // The one that the running callback was lent.
  std::atomic<bool> is_done{true};     // What the last operation that can fail came to.

  std::atomic<int> calls{0};       // Of all callbacks.
  std::atomic<size_t> answers{0};  // To requests.
  int hooked = INT_MAX;            // From this call on the hook is run,
  std::atomic<int> hook_runs{3};   // so often: a hook may have further callbacks called.
  std::function<void()> hook;

 private:
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
    const auto id = std::get<sizeof...(arguments) - 1>(std::tie(arguments...));
    const unsigned int outer = world.chunk.exchange(id);
    world.Call();
    world.GiveBack();
    world.chunk = outer;
  }

  void RunServer(flrpc::IServer& server) {
    server.OnConnected(Any());
    server.OnRequest("echo", [this, any = Any()](const auto&, const auto&, auto&& reply) {
      const auto kept = std::move(reply);  // The handler may be replaced while it runs.
      if (server_) server_->SendNotify("tell", kText);
      any();
      kept->SendResult(kText);
    });
    server.Run();
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
  const QJsonObject message_{{QStringLiteral("data"), QLatin1String(kText)}};
  const std::shared_ptr<int> token_ = std::make_shared<int>();

  _TAVOIntentManagerRef* raw_intents_ = nullptr;
  std::unique_ptr<tavo::ManagerWrapper> wrapper_;
  std::shared_ptr<flrpc::IServer> server_;
  std::shared_ptr<flrpc::IClient> client_;
  std::atomic<int> taken_{0};  // Slots that the service has, or had:
  std::atomic<int> released_{0};
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
    {"ReleaseManager", kIsSure | kIsTold, 4, &World::ReleaseManager, &World::RunServer},
    {"StartTask", kPlain, 0, &World::StartRaw},
    {"TaskStarted", kIsSure | kIsTold, 1, &World::Started, &World::StartRaw},
    {"TaskFailed", kIsSure | kIsTold, 1, &World::FailStart, &World::StartRaw},
    {"ClientSend", kPlain, 0, &World::Send},
    {"ClientMessage", kPlain, 1, &World::Receive},
    {"ClientRelease", kIsSure | kIsTold, 3, &World::Release},
    {"ServerRun", kPlain, 1, &World::RunServer},
    {"ServerSend", kPlain, 0, &World::ServerSend, &World::RunServer},
    {"ServerMessage", kPlain, 1, &World::ServerReceive, &World::RunServer},
    {"GiveBack", kPlain, 0, &World::GiveBack, &World::RunServer},
    {"OpenUri", kPlain, 4, &World::OpenUri, &World::OpenUri},
    {"CreateWrapper", kMayThrow, 3, &World::CreateWrapper},
    {"Connect", kMayThrow | kIsFinal, 2, &World::Connect},
    {"FailedConnection", kIsSure, 1, &World::FailStart, &World::CreateClient},
    {"Request", kMayThrow, 3, &World::Request, &World::Connect},
    {"Disconnect", kIsSure, 5, &World::ReleaseManager, &World::Request},
    {"DropWrapper", kPlain, 0, &World::DropWrapper, &World::Request},
};

}  // namespace test
