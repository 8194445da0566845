// The wrapper's objects over a service that the test plays, of this age or another: its tables are
// declared at every size, and have each entry null once.
#include <array>
#include <stdexcept>
#include <tuple>

#include "cw/plugin_registrar.h"
#include "tests/support/declared_sizes.h"
#include "tests/support/fake_embedder.h"
#include "tests/support/test_base.h"
#include "wrapper/manager_wrapper.h"
#include "wrapper/rpc_client.h"
#include "wrapper/rpc_server.h"

namespace {

using flrpc::Message;
using test::Need;
using Lines = std::vector<std::string>;
using ClientSlots = TAVORpcClientSlots;
using ServerSlots = TAVORpcServerSlots;

// What was called, and what the entries answer.
struct Service {
  std::string told;  // Calls of the service and of the plug-in's callbacks.
  std::vector<Message> sent;
  std::tuple<ClientSlots, ServerSlots, TAVOOpenUriSlot> slots;
  ForgeResult result = FORGE_RESULT_OK;
  bool gives_null = false;
} service;

ForgeResult Tell(const std::string& call) {
  service.told += (service.told.empty() ? "" : ", ") + call;
  return service.result;
}
std::string Take() { return std::exchange(service.told, {}); }

// The manager (M), the intent service (I), a client (C) or the server (S).
template <char kPart, typename Ref, typename... Arguments>
Ref* Give(Arguments...) {
  Tell({kPart});
  return service.gives_null ? nullptr : reinterpret_cast<Ref*>(7);
}
template <typename Slots, typename... Texts>
ForgeResult Keep(const Slots* slots, const Texts&... texts) {
  std::get<Slots>(service.slots) = *slots;
  return Tell((std::string() + ... + texts));
}
template <typename Ref>
void Unlock(Ref*, unsigned int chunk_id) {
  Tell("unlock " + std::to_string(chunk_id));
}
template <typename Ref>
ForgeResult Send(Ref*, const char* text) {
  service.sent.push_back(Message::FromBase64(std::string(text)));
  return service.result;
}

template <auto& kTable, typename Table>
ForgeResult Load(Table* table, unsigned int) {
  *table = kTable;
  return Tell("load");
}

TAVORpcClientProcTable client_table{
    sizeof client_table,
    [](auto*, auto* name, auto* path, auto* slots) { return Keep(slots, name, " ", path); }, Unlock,
    Send, [](auto*) { Tell("release"); }};
TAVORpcServerProcTable server_table{sizeof server_table,
                                    [](auto*, auto* slots) { Keep(slots, "run"); }, Unlock, Send};
TAVOIntentManagerProcTable intent_table{
    sizeof intent_table, [](auto*, auto* uri, auto* slot) { return Keep(slot, uri); }, nullptr};
const TAVOProcTable kTop{sizeof kTop,        Give<'M'>,          [](auto*) { Tell("end"); },
                         Give<'I'>,          Load<intent_table>, Give<'C'>,
                         Load<client_table>, Give<'S'>,          Load<server_table>};

class WrapperTest : public test::TestBase {
 protected:
  WrapperTest() { service = {}; }

  std::unique_ptr<tavo::ManagerWrapper> Create() {
    return tavo::ManagerWrapper::Create(nullptr, directory_);
  }

  // The chunk of a message is given back, whatever comes of it. After the end of the object, which
  // tells `end`, nothing is told.
  template <typename Object, typename Slots>
  void CheckMessages(Object object, const Slots& slots, const std::string& end) {
    object->OnNotify("hear", [](auto&) { Tell("heard"); });
    object->OnNotify("throw", [](auto&) { throw std::runtime_error("cause"); });
    object->OnNotify("drop", [&object](auto&) { object.reset(); });
    const auto notify = [](auto method) {
      return Message::CreateNotification(method, {}).ToBase64();
    };
    const std::array<std::string, 3> rows[] = {
        {{notify("hear"), "heard, unlock 3", ""}},
        {{"", "unlock 3", ""}},
        {{"***", "unlock 3", "unhandled"}},
        {{notify("throw"), "unlock 3", "in OnMessage: cause"}},
        {{"null", "unlock 3", "construction from null"}},
        {{notify("drop"), "unlock 3" + end, ""}},
        {{notify("hear"), "", ""}},
    };
    for (const auto& [text, told, line] : rows) {
      slots.OnMessage(slots.user_data, text == "null" ? nullptr : text.c_str(), 3);
      EXPECT_EQ(told, Take());
      const std::string lines = log_.TakeText();
      EXPECT_NE(std::string::npos, lines.find(line)) << lines;
      EXPECT_EQ(line.empty(), lines.empty()) << lines;
    }
  }

  // `use` succeeds, or the line tells what the table lacks.
  template <typename Table, typename Use>
  void CheckNeeds(Table* table, const std::vector<Need>& needs, Use use) {
    const Table full = *table;
    test::ForEachDeclaration(full, [&](const Table& declared, size_t) {
      *table = declared;
      const std::string lack = FindLack(declared, needs);
      const auto manager = Create();
      EXPECT_EQ(lack.empty(), manager && use(*manager));
      EXPECT_EQ(lack.empty() ? Lines{} : Lines{lack}, log_.TakeLines());
    });
    *table = full;
  }

  test::LogCapture log_;
  const std::shared_ptr<forge::Library> library_ =
      forge::Library::Create(TAVO_TEST_SERVICE_LIBRARY);
  const std::string directory_ = library_->GetPath().parent_path();
  TAVOProcTable& top_ = *static_cast<TAVOProcTable*>(library_->ResolveImpl("test_table")) = kTop;
};

// The chunk 0 of a start is not given back. A null text is empty.
TEST_F(WrapperTest, ClientIsToldOfItsTask) {
  constexpr auto kStarted = &ClientSlots::OnStarted;
  constexpr auto kDisconnect = &ClientSlots::OnDisconnect;
  const std::tuple<bool, decltype(kStarted), int, const char*, uint32_t, std::string> rows[] = {
      {true, kStarted, 0, nullptr, 3, "unlock 3"},
      {true, kStarted, 1, nullptr, 0, "answer 1, disconnected 1 "},
      {true, kDisconnect, 2, nullptr, 0, "answer 2, disconnected 2 , unlock 0"},
      {true, kDisconnect, 0, "", 9,
       "answer -32603, disconnected -32603 Unknown runtime error, unlock 9"},
      {false, kStarted, 5, "cause", 3, "answer 5, connected 5 cause, unlock 3"},
  };
  const auto note = [](const std::string& event) {
    return [event](auto& error) {
      Tell(event + (error ? std::to_string(error->code) + " " + error->message : ""));
    };
  };
  const ClientSlots& slots = std::get<ClientSlots>(service.slots);
  for (const auto& [is_connected, callback, code, text, chunk_id, told] : rows) {
    auto client = Create()->CreateIpcClient("worker");
    EXPECT_EQ("M, C, load, worker " + directory_ + ", end", Take());
    EXPECT_EQ(sizeof slots, slots.size);
    client->OnConnected(note("connected "));
    client->OnDisconnected(note("disconnected "));
    if (is_connected) {
      slots.OnStarted(slots.user_data, 0, "", 0);
      EXPECT_TRUE(service.sent.empty());  // The plug-in has not asked for a connection.
      client->Run();
      const auto id = service.sent.at(0).GetRequest()->id;
      const std::string response = Message::CreateResponse(id, {}).ToBase64();
      slots.OnMessage(slots.user_data, response.c_str(), 1);
      EXPECT_EQ("connected , unlock 1", Take());
    }
    client->SendRequest("m", {}, [](auto& response) {
      Tell("answer " + std::to_string(response.GetError()->code));
    });
    (slots.*callback)(slots.user_data, code, text, chunk_id);
    EXPECT_EQ(told, Take());
    EXPECT_NE(client->IsConnected(), client->HasConnectionFailed());
    EXPECT_EQ(is_connected ? 2u : 0u, service.sent.size());
    service.sent.clear();
    if (is_connected) CheckMessages(std::move(client), slots, ", release");
  }
  EXPECT_EQ("release", Take());
  slots.OnStarted(slots.user_data, 1, "late", 3);
  slots.OnDisconnect(slots.user_data, 1, "late", 3);
  EXPECT_EQ("", Take());
}

TEST_F(WrapperTest, ServerAnswersOnceItsChannelIsOpenWhateverTheCode) {
  auto server = Create()->CreateRpcServer();
  server->OnRequest("double", [](auto&, auto& params, auto&& reply) {
    reply->SendResult(2 * params.template Get<int32_t>());
  });
  server->Run();
  EXPECT_EQ("M, S, load, end, run", Take());
  const ServerSlots& slots = std::get<ServerSlots>(service.slots);
  EXPECT_EQ(sizeof slots, slots.size);
  // The chunk 0 is none.
  const auto request = [&slots](const char* method, unsigned int id) {
    const Message message = Message::CreateRequest(Message::ID(id), method, 21);
    slots.OnMessage(slots.user_data, message.ToBase64().c_str(), id - 1);
  };
  request("flrpc.connected", 2);
  EXPECT_TRUE(service.sent.empty());  // It waits.
  slots.OnStarted(slots.user_data, -7, nullptr, 2);
  request("double", 1);
  EXPECT_EQ("unlock 1, unlock 2", Take());
  ASSERT_EQ(2u, service.sent.size());
  EXPECT_EQ(cw::EncodableValue(42), *service.sent[1].GetResponse()->GetResult());
  CheckMessages(std::move(server), slots, "");
  slots.OnStarted(slots.user_data, 0, nullptr, 7);
  EXPECT_EQ("", Take());
}

// The outcome of what the service has taken over is told, also after the manager; anything else is
// dropped.
TEST_F(WrapperTest, CallbackOfAUriIsToldOrDropped) {
  const auto manager = Create();
  const auto& slot = std::get<TAVOOpenUriSlot>(service.slots);
  for (const ForgeResult result : {0u, 2u, 3u}) {
    const auto told = std::make_shared<std::vector<bool>>();
    auto intents = manager->GetIntentManager();
    service.result = result;
    intents->OpenUri("a:b", [told](bool success) { told->push_back(success); });
    service.result = FORGE_RESULT_OK;
    intents.reset();
    if (result == FORGE_RESULT_OK) {
      slot.callback(slot.user_data, true);
      slot.release(slot.user_data);
      EXPECT_EQ(std::vector<bool>{true}, *told);
    }
    EXPECT_EQ(1, told.use_count());
  }
}

// Null references are the service's to report; a table that cannot be bound is told.
TEST_F(WrapperTest, RefusalsOfTheServiceGiveNull) {
  const auto manager = Create();
  const auto expect_nulls = [&manager](const std::string& calls) {
    Take();
    EXPECT_FALSE(manager->GetIntentManager());
    EXPECT_FALSE(manager->CreateIpcClient(""));
    EXPECT_FALSE(manager->CreateRpcServer());
    EXPECT_EQ(calls, Take());
  };
  service.gives_null = true;
  EXPECT_FALSE(Create());
  expect_nulls("load, I, C, S");
  service.gives_null = false;
  service.result = FORGE_RESULT_INVALID_ARGUMENT;
  expect_nulls("load, C, load, S, load");
  EXPECT_EQ(Lines(3, "[error] Failed to load proc table."), log_.TakeLines());
  service.result = FORGE_RESULT_OK;
  auto client = tavo::RpcClient::Table::Create(library_, Load<client_table>);
  EXPECT_FALSE(tavo::RpcClient::Create(nullptr, "", std::move(client), nullptr));
  client = tavo::RpcClient::Table::Create(library_, Load<client_table>);
  service.result = FORGE_RESULT_INVALID_ARGUMENT;
  const auto ref = reinterpret_cast<_TAVORpcClientRef*>(7);
  EXPECT_TRUE(tavo::RpcClient::Create(nullptr, "name", std::move(client), ref));
  EXPECT_EQ("[error] Task \"name\" could not be started: StartTask returned 2.", log_.TakeLine());
}

TEST_F(WrapperTest, PluginsAreServedByTheirApplicationsDirectory) {
  test::FakeEmbedder embedder;
  embedder.text = directory_;
  cw::PluginRegistrar registrar(embedder.GetContext());
  EXPECT_TRUE(tavo::ManagerWrapper::Create(&registrar));
  embedder.text = "/nowhere";
  EXPECT_FALSE(tavo::ManagerWrapper::Create(&registrar));
  EXPECT_NE(std::string::npos, log_.TakeLine().find("/nowhere/libtavo.so"));
  cw::PluginRegistrar without(embedder.GetContext(offsetof(FlutterOstrelPluginContext, view)));
  EXPECT_FALSE(tavo::ManagerWrapper::Create(&without));
  EXPECT_FALSE(tavo::ManagerWrapper::Create(nullptr));
}

TEST_F(WrapperTest, EachObjectWantsWhatItUses) {
  const auto client = [](auto& manager) { return manager.CreateIpcClient("") != nullptr; };
  const auto server = [](auto& manager) { return manager.CreateRpcServer() != nullptr; };
  const auto intents = [](auto& manager) { return manager.GetIntentManager() != nullptr; };
  const auto uri = [](auto& manager) {
    Take();
    manager.GetIntentManager()->OpenUri("a:b", nullptr);
    const bool is_asked = Take() == "load, I, a:b";
    const auto& slot = std::get<TAVOOpenUriSlot>(service.slots);
    if (is_asked) slot.release(slot.user_data);
    return is_asked;
  };
  {
    using Table = TAVOProcTable;
    const Need begin = TEST_COVERED(Initialize);
    CheckNeeds(&top_, {begin, TEST_COVERED(CreateRpcClient), TEST_COVERED(RpcClientProcTableLoad)},
               client);
    CheckNeeds(&top_, {begin, TEST_COVERED(GetRpcServer), TEST_COVERED(RpcServerProcTableLoad)},
               server);
    CheckNeeds(&top_, {begin, TEST_COVERED(IntentManagerProcTableLoad), TEST_SET(GetIntentManager)},
               intents);
  }
  {
    using Table = TAVORpcClientProcTable;
    CheckNeeds(&client_table,
               {TEST_COVERED(SendMessage), TEST_SET(StartTask), TEST_SET(UnlockResources),
                TEST_COVERED(Release)},
               client);
  }
  {
    using Table = TAVORpcServerProcTable;
    CheckNeeds(&server_table,
               {TEST_COVERED(Run), TEST_COVERED(SendMessage), TEST_SET(UnlockResources)}, server);
  }
  using Table = TAVOIntentManagerProcTable;
  CheckNeeds(&intent_table, {TEST_COVERED(OpenUri)}, uri);
}

}  // namespace
