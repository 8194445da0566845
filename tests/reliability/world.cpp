#include "tests/reliability/world.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <tuple>
#include <utility>

#include "forge/library.h"
#include "src/rpc_client_impl.h"
#include "src/rpc_server_impl.h"

namespace test {

struct World::Slots {
  // Gives the chunk back at the end of the callback, whatever comes of it.
  struct GiveBack {
    World& world;
    const bool is_servers;
    _TAVORpcClientRef* const owner = world.raw;
    const unsigned int outer = world.chunk;

    ~GiveBack() {
      const unsigned int id = std::exchange(world.chunk, outer);
      if (id == 0) return;
      is_servers ? world.server_table.UnlockResources(world.raw_server, id)
                 : world.client_table.UnlockResources(owner, id);
    }
  };

  // Functions with the signature of the slot's field. Those that are lent a chunk come on the event
  // loop's thread.
  template <Callback kCallback, typename... Arguments>
  static void On(void* self, Arguments...) {
    static_cast<World*>(self)->Call(kCallback);
  }
  template <Callback kCallback, typename... Arguments>
  static void Lent(void* self, Arguments... arguments) {
    const GiveBack at_end{*static_cast<World*>(self), kCallback == kServerMessage};
    at_end.world.chunk = std::get<sizeof...(arguments) - 1>(std::tie(arguments...));
    at_end.world.Call(kCallback);
  }
  static void OnIntent(void* self, TAVOReplyIntentSlot* reply) {
    constexpr uint8_t kMap[] = {13, 1, 7, 1, 'a', 7, 1, 'b'};
    const TAVOReplyIntentSlot kept = *reply;
    static_cast<World*>(self)->Call(kIntent);
    kept.reply(kept.context, kMap, sizeof kMap);
    kept.release(kept.context);
  }
};

World::World(LogCapture& log) : log_(log) {
  const auto library = forge::Library::Create(TAVO_TEST_SERVICE_LIBRARY);
  *static_cast<TAVOProcTable*>(library->ResolveImpl("test_table")) = top;
  CreateWrapper();
  raw_server = top.GetRpcServer(manager);
  raw_intents = top.GetIntentManager(manager);
  intents = wrapper->GetIntentManager();
  RunRaw();
}

World::~World() {
  hook = nullptr;
  guest.reset();
  client.reset();
  server.reset();
  intents.reset();
  wrapper.reset();
  top.Release(manager);
  Settle();
  platform.intents.clear();
  for (const Callback release : {kRelease, kServerRelease, kUriRelease, kIntentRelease}) {
    EXPECT_EQ(taken[release], calls[release]) << "releases of the slot " << release;
  }
  EXPECT_LE(calls[kUri], taken[kUriRelease]);
  EXPECT_EQ(1, token_.use_count()) << "A callback was not freed.";
  for (const auto& task : platform.tasks) EXPECT_FALSE(task->alive);
  for (const auto& messaging : platform.messagings) EXPECT_FALSE(messaging->object);
  CountLines("");
}

// What the test's own failures write is among the lines.
long World::CountLines(const std::string& part) {
  const auto lines = log_.OutputCapture::TakeLines();
  if (testing::Test::HasFailure()) {
    for (const std::string& line : lines) std::cerr << line << std::endl;
  }
  return std::count_if(lines.begin(), lines.end(), [&part](const std::string& line) {
    return line.find(part) != std::string::npos;
  });
}

void World::Call(Callback callback) {
  ++calls[callback];
  if (callback != hooked || !hook || hook_runs == 0) return;
  --hook_runs;
  const std::shared_ptr<void> end(
      nullptr, [this, outer = std::exchange(is_in_hook_, true)](void*) { is_in_hook_ = outer; });
  hook();
}

bool World::StartRaw() {
  TAVORpcClientSlots slots{sizeof slots,          Slots::Lent<kStarted>, Slots::On<kDisconnect>,
                           Slots::Lent<kMessage>, Slots::On<kRelease>,   this};
  const bool is_started = client_table.StartTask(raw, "raw", "/libs", &slots) == FORGE_RESULT_OK;
  taken[kRelease] += is_started;
  return is_started;
}

void World::RunRaw() {
  CreateRaw();
  ASSERT_TRUE(StartRaw());
  platform.tasks.back()->Started();
  raw_channel = platform.messagings.back();
}

bool World::RunRawServer() {
  TAVORpcServerSlots slots{sizeof slots, Slots::On<kServerStarted>, Slots::Lent<kServerMessage>,
                           Slots::On<kServerRelease>, this};
  const int started = calls[kServerStarted];
  server_table.Run(raw_server, &slots);
  if (calls[kServerStarted] == started) return false;
  ++taken[kServerRelease];
  server_channel = platform.messagings.back();
  return true;
}

bool World::OpenRawUri() {
  TAVOOpenUriSlot slot{sizeof slot, Slots::On<kUri>, Slots::On<kUriRelease>, this};
  ++taken[kUriRelease];  // Already within the call: the slot may be released there.
  const bool is_open = intent_table.OpenUri(raw_intents, kLongText, &slot) == FORGE_RESULT_OK;
  taken[kUriRelease] -= !is_open;
  return is_open;
}

bool World::RegisterIntent() {
  TAVORegisterIntentSlot slot{sizeof slot, Slots::OnIntent, Slots::On<kIntentRelease>, this};
  const bool is_registered =
      intent_table.RegisterIntent(raw_intents, kLongText, &slot) == FORGE_RESULT_OK;
  taken[kIntentRelease] += is_registered;
  return is_registered;
}

// An answer is the whole one, or empty for want of memory.
void World::InvokeIntent() {
  const auto found = platform.intents.find(QString::fromLatin1(kLongText));
  if (found == platform.intents.end()) return;
  const auto handler = found->second;  // It may be replaced while it runs.
  handler({}, [this](const QJsonObject& answer) {
    if (answer.isEmpty()) return;
    EXPECT_EQ((QJsonObject{{QStringLiteral("a"), QStringLiteral("b")}}), answer);
    Call(kIntentAnswer);
  });
}

bool World::CreateWrapper() {
  const std::filesystem::path path = TAVO_TEST_SERVICE_LIBRARY;
  wrapper = tavo::ManagerWrapper::Create(nullptr, path.parent_path());
  return wrapper != nullptr;
}

bool World::Serve() {
  if (server && server_channel) return true;  // The service takes the first one, and no other.
  const size_t channels = platform.messagings.size();
  server = wrapper ? wrapper->CreateRpcServer() : nullptr;
  if (!server) return false;
  Listen(*server);
  server->Run();
  if (platform.messagings.size() > channels) server_channel = platform.messagings.back();
  return server_channel != nullptr;
}

void World::Listen(flrpc::IServer& server_side) {
  server_side.OnConnected(Count(kServerConnected));
  server_side.OnNotify("tell", Count(kServerNotification));
  server_side.OnRequest(
      "echo", [this, token = token_](const auto&, const auto& params, auto&& reply) {
        const auto kept = std::move(reply);
        const cw::EncodableValue answer = params;  // The handler may be replaced while it runs.
        Call(kRequest);
        kept->SendResult(answer);
      });
}

bool World::CreateClient() {
  const size_t tasks = platform.tasks.size();
  client = wrapper ? wrapper->CreateIpcClient("worker") : nullptr;
  if (client) Listen(*client);
  return platform.tasks.size() > tasks;
}

void World::Listen(flrpc::IClient& client_side) {
  client_side.OnConnected(Count(kConnected));
  client_side.OnDisconnected(Count(kDisconnected));
  client_side.OnNotify("tell", Count(kNotification));
}

bool World::Handshake() {
  if (client) client->Run();
  platform.tasks.back()->Started();
  client_channel = platform.messagings.back();
  Settle();
  return client && client->IsConnected();
}

void World::Connect() {
  Serve();
  CreateClient();
  Handshake();
}

void World::Request(Callback callback) {
  if (client) client->SendRequest("echo", std::string(kLongText), Count(callback));
}

World::Counts World::GetCalls() const {
  Counts copy;
  std::copy(calls.begin(), calls.end(), copy.begin());
  return copy;
}

bool World::WereCalled(unsigned callbacks, const Counts& since) const {
  for (size_t i = 0; i < kCallbacks; ++i) {
    if (callbacks >> i & 1 && calls[i] == since[i]) return false;
  }
  return true;
}

bool World::CarryOne() {
  const auto carry = [](const auto& from, const auto& to) {
    if (!from || !to || from->sent.empty()) return false;
    const auto texts = std::exchange(from->sent, {});
    for (const QJsonObject& text : texts) to->Receive(text);
    return true;
  };
  if (carry(client_channel, server_channel) || carry(server_channel, client_channel)) return true;
  for (size_t i = 0; i < platform.tasks.size(); ++i) {  // A callback may start another.
    const auto task = platform.tasks[i];
    if (!task->stop) continue;
    task->Stopped();
    return true;
  }
  if (platform.invocations.empty()) return false;
  platform.invocations.clear();
  platform.ReplyToIntent(0);
  return true;
}

void World::Settle() {
  while (CarryOne()) {
  }
  if (QCoreApplication::instance()) {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }
}

// Every id since the beginning is given back: the service complains where none is open. What comes
// to a server of the wrapper that is gone stays open.
void World::CheckChunks() {
  const bool has_server = server || taken[kServerRelease] > 0;
  CountLines("");
  const uint32_t end = forge::details::CounterClient::GenerateId();
  long lines = 0;
  for (uint32_t id = first_id_; id != end; ++id) {
    client_table.UnlockResources(raw, id);
    lines += tavo::RpcClientImpl::FromRef(raw) != nullptr;
    if (has_server) server_table.UnlockResources(raw_server, id);
    lines += has_server && tavo::RpcServerImpl::FromRef(raw_server);
  }
  EXPECT_EQ(lines, CountLines("Invalid chunk ID")) << "A chunk was left open.";
}

void World::CheckItWorks() {
  hook = nullptr;
  Settle();
  CheckChunks();
  const Counts before = GetCalls();
  RunRaw();
  EXPECT_TRUE(SendRaw());
  raw_channel->Receive(message);
  client_table.Release(raw);
  OpenRawUri();
  const bool is_connected = client && server && client->IsConnected();
  if (is_connected) Request(kOther);
  Settle();
  EXPECT_TRUE(WereCalled(Calls(kStarted, kMessage, kDisconnect, kRelease), before));
  EXPECT_EQ(taken[kUriRelease], calls[kUriRelease]) << "A request still waits.";
  EXPECT_EQ(before[kOther] + is_connected, calls[kOther]);
}

}  // namespace test
