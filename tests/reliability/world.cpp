#include "tests/reliability/world.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <tuple>

#include "forge/library.h"
#include "src/rpc_client_impl.h"
#include "src/rpc_server_impl.h"

namespace test {
namespace {

template <typename Function>
struct AtEnd {
  Function function;
  ~AtEnd() { function(); }
};
template <typename Function>
AtEnd(Function) -> AtEnd<Function>;

}  // namespace

struct World::Slots {
  static World& Of(void* world) { return *static_cast<World*>(world); }

  // A function with the signature of the slot's field.
  template <Callback kCallback, typename... Arguments>
  static void Lent(void* world, Arguments... arguments) {
    Of(world).CallAndGiveBack(kCallback,
                              std::get<sizeof...(arguments) - 1>(std::tie(arguments...)));
  }
  template <Callback kCallback, typename... Arguments>
  static void Plain(void* world, Arguments...) {
    Of(world).Call(kCallback);
  }
  static void OnIntent(void* world, TAVOReplyIntentSlot* reply) {
    constexpr uint8_t kMap[] = {13, 1, 7, 1, 'a', 7, 1, 'b'};
    const TAVOReplyIntentSlot kept = *reply;
    Of(world).Call(kIntent);
    kept.reply(kept.context, kMap, sizeof kMap);
    kept.release(kept.context);
  }
};

World::World(LogCapture& log) : log_(log) {
  const auto library = forge::Library::Create(TAVO_TEST_SERVICE_LIBRARY);
  auto* table = static_cast<TAVOProcTable*>(library->ResolveImpl("test_table"));
  TAVOProcTableLoad(table, sizeof *table);
  top = *table;
  top.RpcClientProcTableLoad(&client_table, sizeof client_table);
  top.RpcServerProcTableLoad(&server_table, sizeof server_table);
  top.IntentManagerProcTableLoad(&intent_table, sizeof intent_table);
  CreateManager();
  manager_ref = top.Initialize();
  raw_server = top.GetRpcServer(manager_ref);
  raw_intents = top.GetIntentManager(manager_ref);
  intents = manager->GetIntentManager();
}

bool World::CreateManager() {
  const std::filesystem::path path = TAVO_TEST_SERVICE_LIBRARY;
  manager = tavo::ManagerWrapper::Create(nullptr, path.parent_path());
  return manager != nullptr;
}

World::~World() {
  hook = nullptr;
  client.reset();
  server.reset();
  intents.reset();
  manager.reset();
  top.Release(manager_ref);
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
size_t World::CountLines(const std::string& part) {
  const auto lines = log_.OutputCapture::TakeLines();
  if (testing::Test::HasFailure()) {
    for (const std::string& line : lines) std::cerr << line << std::endl;
  }
  return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&part](const auto& line) {
    return line.find(part) != std::string::npos;
  }));
}

void World::Call(Callback callback) {
  constexpr int kMostRuns = 3;  // A hook may have its own callback called.
  if (++calls[callback] <= kMostRuns && callback == hooked && hook) hook();
}

void World::CallAndGiveBack(Callback callback, unsigned int lent) {
  const bool is_servers = callback == kServerMessage;
  const AtEnd give_back{[this, is_servers, owner = raw, outer = chunk] {
    const unsigned int id = std::exchange(chunk, outer);
    if (id == 0) return;
    is_servers ? server_table.UnlockResources(raw_server, id)
               : client_table.UnlockResources(owner, id);
  }};
  chunk = lent;
  Call(callback);
}

bool World::StartRaw() {
  TAVORpcClientSlots slots{sizeof slots,          Slots::Lent<kStarted>,  Slots::Plain<kDisconnect>,
                           Slots::Lent<kMessage>, Slots::Plain<kRelease>, this};
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

void World::RunRawServer() {
  TAVORpcServerSlots slots{sizeof slots, Slots::Plain<kServerStarted>, Slots::Lent<kServerMessage>,
                           Slots::Plain<kServerRelease>, this};
  const int started = calls[kServerStarted];
  server_table.Run(raw_server, &slots);
  if (calls[kServerStarted] == started) return;
  ++taken[kServerRelease];
  server_channel = platform.messagings.back();
}

bool World::OpenRawUri() {
  TAVOOpenUriSlot slot{sizeof slot, Slots::Plain<kUri>, Slots::Plain<kUriRelease>, this};
  ++taken[kUriRelease];  // Already within the call: the slot may be released there.
  const bool is_open = intent_table.OpenUri(raw_intents, kLongText, &slot) == FORGE_RESULT_OK;
  taken[kUriRelease] -= !is_open;
  return is_open;
}

bool World::RegisterIntent() {
  TAVORegisterIntentSlot slot{sizeof slot, Slots::OnIntent, Slots::Plain<kIntentRelease>, this};
  const bool is_registered =
      intent_table.RegisterIntent(raw_intents, kLongText, &slot) == FORGE_RESULT_OK;
  taken[kIntentRelease] += is_registered;
  return is_registered;
}

void World::InvokeIntent() {
  const auto found = platform.intents.find(QString::fromLatin1(kLongText));
  if (found == platform.intents.end()) return;
  const auto handler = found->second;  // It may be replaced while it runs.
  handler({}, [this](const QJsonObject& answer) {
    intent_answer = answer;
    Call(kIntentAnswer);
  });
}

void World::Serve() {
  server = manager->CreateRpcServer();
  if (!server) return;
  server->OnConnected(Count(kServerConnected));
  server->OnNotify("tell", Count(kServerNotification));
  server->OnRequest("echo", [this, token = token_](const auto&, const auto& params, auto&& reply) {
    const auto kept = std::move(reply);
    const cw::EncodableValue answer = params;  // The handler may be replaced while it runs.
    Call(kRequest);
    kept->SendResult(answer);
  });
  server->Run();
  if (!platform.messagings.empty()) server_channel = platform.messagings.back();
}

void World::CreateClient() {
  client = manager->CreateIpcClient("worker");
  if (!client) return;
  client->OnConnected(Count(kConnected));
  client->OnDisconnected(Count(kDisconnected));
  client->OnNotify("tell", Count(kNotification));
}

void World::Connect() {
  Serve();
  CreateClient();
  Handshake();
}

void World::Handshake() {
  client->Run();
  platform.tasks.back()->Started();
  client_channel = platform.messagings.back();
  Settle();
}

void World::Request(Callback callback) {
  if (client) client->SendRequest("echo", std::string(kLongText), Count(callback));
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

// Every id since the beginning is given back: the service complains where none is open.
void World::CheckChunks() {
  CountLines("");
  const uint32_t end = forge::details::CounterClient::GenerateId();
  size_t lines = 0;
  for (uint32_t id = first_id_; id != end; ++id) {
    if (tavo::RpcClientImpl::FromRef(raw)) ++lines, client_table.UnlockResources(raw, id);
    if (tavo::RpcServerImpl::FromRef(raw_server)) {
      ++lines, server_table.UnlockResources(raw_server, id);
    }
  }
  EXPECT_EQ(lines, CountLines("Invalid chunk ID")) << "A chunk was left open.";
}

void World::CheckItWorks() {
  hook = nullptr;
  const auto before = calls;
  RunRaw();
  EXPECT_TRUE(SendRaw());
  raw_channel->Receive(message);
  client_table.Release(raw);
  const bool is_connected = client && server && client->IsConnected();
  if (is_connected) Request(kOther);
  Settle();
  for (const Callback callback : {kStarted, kMessage, kDisconnect, kRelease}) {
    EXPECT_LT(before[callback], calls[callback]) << callback;
  }
  EXPECT_EQ(before[kOther] + is_connected, calls[kOther]);
}

}  // namespace test
