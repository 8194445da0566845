// The whole system in one process: the wrapper's objects over the real service over the platform,
// which is played. There is one raw client of the C tables, and what a scenario adds: a client and
// a server of the wrapper, joined with each other. Every callback is counted, and may run a hook.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include <QCoreApplication>

#include "forge/library.h"
#include "forge/object.h"
#include "tests/src/service_fixture.h"
#include "wrapper/manager_wrapper.h"

namespace test {

// The callbacks of the system. Those before kStarted come once.
enum Callback {
  kConnected,
  kDisconnected,
  kResponse,
  kServerConnected,
  kWrapperUri,
  kStarted,
  kDisconnect,
  kMessage,
  kRelease,
  kUri,
  kIntent,
  kIntentAnswer,
  kRequest,
  kNotification,
  kOther,  // Of what a test does besides its subject.
  kCallbacks
};

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
    intents_ = wrapper_->GetIntentManager();
    RegisterIntent();
    OpenUri();
    StartRaw();
    Started();
  }

  // Ends everything, and checks that nothing of it is left.
  ~World() {
    hooked = kCallbacks;
    DropWrapper();
    wrapper_.reset();
    ReleaseManager();
    Settle();
    platform.intents.clear();
    EXPECT_EQ(taken_, calls[kRelease]) << "Not each slot was released once.";
    EXPECT_EQ(1, token_.use_count()) << "A callback was not freed.";
    for (const auto& task : platform.tasks) EXPECT_FALSE(task->alive);
    for (const auto& messaging : platform.messagings) EXPECT_FALSE(messaging->object);
    CountLines("");
  }

  // A function for any C++ callback, which counts as kOther if a hook has run before. It keeps a
  // token, so that one which is never freed is noticed.
  auto Count(Callback callback) {
    const bool is_subject = hook_runs == 0 || callback >= kStarted;
    const Callback counted = is_subject ? callback : kOther;
    return [this, counted, token = token_](auto&&...) { Call(counted); };
  }

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

  // The raw client and server.
  void StartRaw() {
    TAVORpcClientSlots slots{sizeof slots,   Lent<kStarted>, On<kDisconnect>,
                             Lent<kMessage>, On<kRelease>,   this};
    raw = top.CreateRpcClient(manager);
    Take(client_table.StartTask(raw, "raw", "/libs", &slots) == FORGE_RESULT_OK);
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
    TAVORpcServerSlots slots{sizeof slots, On<kStarted>, Lent<kMessage>, On<kRelease>, this};
    const int started = calls[kStarted];
    server_table.Run(raw_server, &slots);
    Take(calls[kStarted] > started);
  }
  void ServerSend() { is_done = server_table.SendMessage(raw_server, kText) == FORGE_RESULT_OK; }
  void ServerReceive() { FindChannel(kServerPath).Receive(message_); }
  void GiveBackTwice() {
    const unsigned int own = chunk.exchange(0);
    for (const unsigned int id : {own, own, 4711u, 0u}) GiveBack(raw, id);
  }

  // Intents.
  void OpenUri() {
    TAVOOpenUriSlot slot{sizeof slot, On<kUri>, On<kRelease>, this};
    Take(intent_table.OpenUri(raw_intents_, kText, &slot) == FORGE_RESULT_OK);
  }
  void OpenWrapperUri() {
    if (intents_) intents_->OpenUri("a:", Count(kWrapperUri));
  }
  void RegisterIntent() {
    TAVORegisterIntentSlot slot{sizeof slot, OnIntent, On<kRelease>, this};
    Take(intent_table.RegisterIntent(raw_intents_, kText, &slot) == FORGE_RESULT_OK);
  }
  void InvokeIntent() {
    const auto handler = platform.intents[text_];  // It may be replaced while it runs.
    handler({}, [this](const QJsonObject& answer) {
      if (answer.isEmpty()) return;  // For want of memory.
      EXPECT_EQ(QStringLiteral("b"), answer.value(QStringLiteral("a")).toString());
      Call(kIntentAnswer);
    });
  }

  // The wrapper's client and server.
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
    Serve();
    CreateClient();
    Started();
    Settle();
    is_done = client_ && client_->IsConnected();
  }
  void Request() { Request(kResponse); }
  void SendRequests() {
    Connect();
    for (const Callback callback : {kResponse, kOther, kOther}) Request(callback);
  }
  void ListenAgain() {
    if (client_) ListenAndRun(*client_);
    if (server_) ListenAndRun(*server_);
  }
  void DropWrapper() {
    if (server_) raw_server = nullptr;  // What comes to it from now on is not given back.
    client_.reset();
    server_.reset();
    intents_.reset();
  }

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

  // Checks that no chunk of the raw client and of the server is open, that a new client of the
  // service starts, talks and ends, and that what waits is answered.
  void CheckItWorks() {
    hooked = kCallbacks;
    Settle();
    CheckChunks();
    const auto before = GetCalls();
    StartRaw();
    Started();
    Send();
    EXPECT_TRUE(is_done);
    Receive();
    Release();
    OpenUri();
    const int uris = before[kUri] + is_done;
    const bool is_connected = client_ && server_ && client_->IsConnected();
    if (is_connected) Request(kOther);
    Settle();
    EXPECT_TRUE(WereCalled({kStarted, kMessage, kDisconnect, kRelease}, before));
    EXPECT_EQ(uris, calls[kUri]) << "A request still waits.";
    EXPECT_EQ(before[kOther] + is_connected, calls[kOther]);
  }

  // How often each callback was called; and whether all of these were again since.
  std::vector<int> GetCalls() const { return {calls.begin(), calls.end()}; }
  bool WereCalled(const std::vector<Callback>& callbacks, const std::vector<int>& since) const {
    return std::all_of(callbacks.begin(), callbacks.end(),
                       [&](Callback callback) { return calls[callback] > since[callback]; });
  }

  // The new lines of the log with this text. The others are lost.
  long CountLines(const std::string& part) {
    const auto lines = OutputCapture::TakeLines();
    return std::count_if(lines.begin(), lines.end(), [&part](const std::string& line) {
      return line.find(part) != std::string::npos;
    });
  }

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
  std::array<std::atomic<int>, kCallbacks> calls{};
  Callback hooked = kCallbacks;  // Which callback runs the hook.
  std::function<void()> hook;
  int hook_runs = 0;

 private:
  static constexpr char kRawPath[] = "/run/raw";
  static constexpr char kClientPath[] = "/run/worker";
  static constexpr char kServerPath[] = "";

  // The functions of the C slots. The last argument of some is a chunk, which is given back when
  // they end, unless somebody has taken it; they come on the event loop's thread.
  template <Callback kCallback, typename... Arguments>
  static void On(void* self, Arguments...) {
    static_cast<World*>(self)->Call(kCallback);
  }
  template <Callback kCallback, typename... Arguments>
  static void Lent(void* self, Arguments... arguments) {
    World& world = *static_cast<World*>(self);
    _TAVORpcClientRef* const owner = world.raw;
    const auto id = std::get<sizeof...(arguments) - 1>(std::tie(arguments...));
    const unsigned int outer = world.chunk.exchange(id);
    world.Call(kCallback);
    world.GiveBack(owner, world.chunk.exchange(outer));
  }
  static void OnIntent(void* self, TAVOReplyIntentSlot* reply) {
    constexpr uint8_t kMap[] = {13, 1, 7, 1, 'a', 7, 1, 'b'};
    const TAVOReplyIntentSlot kept = *reply;
    static_cast<World*>(self)->Call(kIntent);
    kept.reply(kept.context, kMap, sizeof kMap);
    kept.release(kept.context);
  }
  void Take(bool is_taken) {
    taken_ += is_taken;
    is_done = is_taken;
  }
  void Call(Callback callback) {
    ++calls[callback];
    if (callback != hooked) return;
    ++hook_runs;
    hook();
  }

  void Serve() {
    // The service takes the first one, and no other.
    if (server_ && FindChannel(kServerPath).object) return;
    server_ = wrapper_->CreateRpcServer();
    if (server_) ListenAndRun(*server_);
  }
  void ListenAndRun(flrpc::IServer& server) {
    server.OnConnected(Count(kServerConnected));
    server.OnRequest("echo", [this, token = token_](const auto&, const auto&, auto&& reply) {
      const auto kept = std::move(reply);  // The handler may be replaced while it runs.
      if (server_) server_->SendNotify("tell", kText);
      Call(kRequest);
      kept->SendResult(kText);
    });
    server.Run();
  }
  void ListenAndRun(flrpc::IClient& client) {
    client.OnConnected(Count(kConnected));
    client.OnDisconnected(Count(kDisconnected));
    client.OnNotify("tell", Count(kNotification));
    client.Run();
  }
  void Request(Callback callback) {
    if (client_) client_->SendRequest("echo", std::string(kText), Count(callback));
  }

  // The newest one with that path; if there is none, one that leads nowhere.
  FakeMessaging& FindChannel(const char* path) {
    static FakeMessaging nowhere;
    const auto& channels = platform.messagings;
    const auto found =
        std::find_if(channels.rbegin(), channels.rend(),
                     [path](const auto& channel) { return channel->path == QLatin1String(path); });
    return found == channels.rend() ? nowhere : **found;
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

  // Every id since the beginning is given back: the client and the server, while there is one,
  // complain of each that is not open.
  void CheckChunks() {
    CountLines("");
    const uint32_t end = forge::details::CounterClient::GenerateId();
    for (uint32_t id = first_id_; id != end; ++id) GiveBack(raw, id);
    const long lines = CountLines("Invalid chunk ID");
    EXPECT_EQ(0, lines % (end - first_id_)) << "A chunk was left open.";
  }

  const QString text_ = QString::fromLatin1(kText);
  const QJsonObject message_{{QStringLiteral("data"), text_}};

  _TAVOIntentManagerRef* raw_intents_ = nullptr;
  std::unique_ptr<tavo::ManagerWrapper> wrapper_;
  std::unique_ptr<tavo::IntentManager> intents_;
  std::shared_ptr<flrpc::IServer> server_;
  std::shared_ptr<flrpc::IClient> client_;
  std::atomic<int> taken_{0};  // Slots that the service has.

  const uint32_t first_id_ = forge::details::CounterClient::GenerateId();
  const std::shared_ptr<int> token_ = std::make_shared<int>();
};

}  // namespace test
