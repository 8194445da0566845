// The objects of the wrapper over tables made by the test.
#include <dlfcn.h>

#include <cstring>
#include <optional>
#include <stdexcept>

#include "cw/plugin_registrar.h"
#include "tests/support/fake_embedder.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"
#include "wrapper/manager_wrapper.h"
#include "wrapper/rpc_client.h"
#include "wrapper/rpc_server.h"

namespace {

using cw::EncodableValue;
using flrpc::Message;

// The service, played by the test: what was called, and what the entries answer.
struct Service {
  std::string told;  // Calls of the service and of the plug-in's callbacks.
  std::vector<Message> sent;
  TAVORpcClientSlots client_slots{};
  TAVORpcServerSlots server_slots{};
  TAVOOpenUriSlot uri_slot{};
  ForgeResult result = FORGE_RESULT_OK;
  bool gives_null = false;

  void Tell(const std::string& call) { told += (told.empty() ? "" : ", ") + call; }
  std::string Take() { return std::exchange(told, {}); }
};
Service* service = nullptr;

template <typename Ref>
Ref Give(const char* call) {
  service->Tell(call);
  return service->gives_null ? nullptr : reinterpret_cast<Ref>(7);
}

ForgeResult KeepSent(const char* text) {
  service->sent.push_back(Message::FromBase64(std::string(text)));
  return service->result;
}

void Unlock(unsigned int chunk_id) { service->Tell("unlock " + std::to_string(chunk_id)); }

TAVORpcClientProcTable MakeClientTable() {
  return {
      sizeof(TAVORpcClientProcTable),
      [](_TAVORpcClientRef*, const char* name, const char* directory, TAVORpcClientSlots* slots) {
        service->Tell(std::string("start ") + name + " " + directory);
        service->client_slots = *slots;
        return service->result;
      },
      [](_TAVORpcClientRef*, unsigned int chunk_id) { Unlock(chunk_id); },
      [](_TAVORpcClientRef*, const char* text) { return KeepSent(text); },
      [](_TAVORpcClientRef*) { service->Tell("release"); }};
}

TAVORpcServerProcTable MakeServerTable() {
  return {sizeof(TAVORpcServerProcTable),
          [](_TAVORpcServerRef*, TAVORpcServerSlots* slots) {
            service->Tell("run");
            service->server_slots = *slots;
          },
          [](_TAVORpcServerRef*, unsigned int chunk_id) { Unlock(chunk_id); },
          [](_TAVORpcServerRef*, const char* text) { return KeepSent(text); }};
}

// Tables are bound from a library, so there is one, whose path the client passes on.
template <typename Table>
std::unique_ptr<forge::LibraryApi<Table>> Bind(const Table& table) {
  static Table source;
  source = table;
  return forge::LibraryApi<Table>::Create(forge::Library::Create(TAVO_TEST_SERVICE_LIBRARY),
                                          [](Table* target, unsigned int) {
                                            *target = source;
                                            return FORGE_RESULT_OK;
                                          });
}

std::string Describe(const std::optional<Message::Error>& error) {
  return error ? std::to_string(error->code) + " " + error->message : "no error";
}

class WrapperTest : public test::TestBase {
 protected:
  WrapperTest() { service = &service_; }

  test::LogCapture log_;
  Service service_;
};

// ---- RpcClient ----

class RpcClientTest : public WrapperTest {
 public:
  RpcClientTest() {
    client_ = tavo::RpcClient::Create(nullptr, "worker", Bind(MakeClientTable()),
                                      reinterpret_cast<_TAVORpcClientRef*>(7));
    client_->OnConnected([this](const auto& error) { Note("connected", error); });
    client_->OnDisconnected([this](const auto& error) { Note("disconnected", error); });
    client_->OnNotify("throw", [](const auto&) { throw std::runtime_error("cause"); });
    client_->OnNotify("drop", [this](const auto&) { client_.reset(); });
    client_->OnNotify("hear", [this](const auto&) { service_.Tell("heard"); });
  }

  void Note(const std::string& event, const std::optional<Message::Error>& error) {
    service_.Tell(event + ": " + Describe(error));
  }

  void Start(int code, const char* text, unsigned int chunk_id) {
    service_.client_slots.OnStarted(service_.client_slots.user_data, code, text, chunk_id);
  }
  void Disconnect(int code, const char* text, unsigned int chunk_id) {
    service_.client_slots.OnDisconnect(service_.client_slots.user_data, code, text, chunk_id);
  }
  void Deliver(const char* text, unsigned int chunk_id) {
    service_.client_slots.OnMessage(service_.client_slots.user_data, text, chunk_id);
  }
  void Notify(const char* method, unsigned int chunk_id) {
    Deliver(Message::CreateNotification(method, {}).ToBase64().c_str(), chunk_id);
  }
  void Connect() {
    client_->Run();
    Start(0, "", 0);
    const Message response = Message::CreateResponse(service_.sent.at(0).GetRequest()->id, {});
    Deliver(response.ToBase64().c_str(), 1);
    EXPECT_TRUE(client_->IsConnected());
  }

  std::shared_ptr<flrpc::IClient> client_;
};

TEST_F(RpcClientTest, StartsTheTaskWithItsLibrarysDirectory) {
  const std::string directory = std::filesystem::path(TAVO_TEST_SERVICE_LIBRARY).parent_path();
  EXPECT_EQ("start worker " + directory, service_.Take());
  EXPECT_EQ(sizeof(TAVORpcClientSlots), service_.client_slots.size);
  EXPECT_EQ(nullptr, service_.client_slots.Release);
  client_.reset();
  EXPECT_EQ("release", service_.Take());
  Start(-32603, "late", 3);  // Nobody is there: nothing is given back, nothing told.
  Disconnect(0, "", 3);
  Deliver("late", 3);
  EXPECT_EQ("", service_.Take());
}

// The start may be reported before the plug-in asks for a connection.
TEST_F(RpcClientTest, ConnectsWhenTheTaskRunsAndItWasAskedTo) {
  Start(0, "", 0);
  EXPECT_TRUE(service_.sent.empty());
  client_->Run();
  ASSERT_EQ(1u, service_.sent.size());
  EXPECT_TRUE(service_.sent[0].IsRequest("flrpc.connected"));
}

TEST_F(RpcClientTest, FailedStartIsToldToAllWhoWaitAndToTheNext) {
  client_->SendRequest("m", {}, [this](const Message::Response& response) {
    service_.Tell("response: " + std::to_string(response.GetError()->code));
  });
  service_.Take();
  Start(-32603, "no such task", 5);
  client_->Run();
  EXPECT_EQ("response: -32603, connected: -32603 no such task, unlock 5", service_.Take());
  EXPECT_TRUE(client_->HasConnectionFailed());
  client_->OnConnected([this](const auto& error) { Note("connected", error); });
  EXPECT_EQ("connected: -32603 no such task", service_.Take());
  EXPECT_TRUE(service_.sent.empty());
}

// A call of the service, what the plug-in is told of it, and the chunk that is given back: on every
// path, but for the chunk 0 of a start. A null text is empty.
struct ClientCall {
  const char* name;
  void (*call)(RpcClientTest& test);
  std::string told;
  std::string line = {};
};
void PrintTo(const ClientCall& row, std::ostream* out) { *out << row.name; }

const ClientCall kClientCalls[] = {
    {"Started", [](RpcClientTest& t) { t.Start(0, nullptr, 3); }, "unlock 3"},
    {"FailedWithoutText", [](RpcClientTest& t) { t.Start(1, nullptr, 0); }, "disconnected: 1 "},
    {"Disconnect", [](RpcClientTest& t) { t.Disconnect(-5, "gone", 9); },
     "disconnected: -5 gone, unlock 9"},
    {"DisconnectWithoutError", [](RpcClientTest& t) { t.Disconnect(0, "", 9); },
     "disconnected: -32603 Unknown runtime error, unlock 9"},
    {"DisconnectWithoutText", [](RpcClientTest& t) { t.Disconnect(2, nullptr, 0); },
     "disconnected: 2 , unlock 0"},
    {"Message", [](RpcClientTest& t) { t.Notify("hear", 2); }, "heard, unlock 2"},
    {"MessageWithoutText", [](RpcClientTest& t) { t.Deliver("", 3); }, "unlock 3"},
    {"NullMessage", [](RpcClientTest& t) { t.Deliver(nullptr, 5); }, "unlock 5",
     "Stray exception in OnMessage: basic_string: construction from null is not valid"},
    {"NoMessage", [](RpcClientTest& t) { t.Deliver("***", 6); }, "unlock 6", "unhandled"},
    {"HandlerThatThrows", [](RpcClientTest& t) { t.Notify("throw", 4); }, "unlock 4",
     "Stray exception in OnMessage: cause"},
    {"HandlerThatDropsTheClient", [](RpcClientTest& t) { t.Notify("drop", 7); },
     "unlock 7, release"},
};

class ClientCallTest : public RpcClientTest, public testing::WithParamInterface<ClientCall> {};

TEST_P(ClientCallTest, IsToldAndItsChunkGivenBack) {
  Connect();
  service_.Take();
  GetParam().call(*this);
  EXPECT_EQ(GetParam().told, service_.Take());
  const std::string lines = log_.TakeText();
  EXPECT_NE(std::string::npos, lines.find(GetParam().line)) << lines;
  EXPECT_EQ(GetParam().line.empty(), lines.empty()) << lines;
}

INSTANTIATE_TEST_SUITE_P(Calls, ClientCallTest, testing::ValuesIn(kClientCalls),
                         [](const auto& row) { return std::string(row.param.name); });

// ---- RpcServer ----

class RpcServerTest : public WrapperTest {
 protected:
  void Start(int code, unsigned int chunk_id) {
    service_.server_slots.OnStarted(service_.server_slots.user_data, code, nullptr, chunk_id);
  }
  void Deliver(const char* text, unsigned int chunk_id) {
    service_.server_slots.OnMessage(service_.server_slots.user_data, text, chunk_id);
  }
  void Request(uint32_t id, const char* method, unsigned int chunk_id) {
    Deliver(Message::CreateRequest(Message::ID(id), method, 21).ToBase64().c_str(), chunk_id);
  }

  std::shared_ptr<flrpc::IServer> server_ = tavo::RpcServer::Create(
      nullptr, Bind(MakeServerTable()), reinterpret_cast<_TAVORpcServerRef*>(7));
};

TEST_F(RpcServerTest, AnswersOnceItsChannelIsOpenWhateverTheCode) {
  server_->OnRequest("double", [](const auto&, const EncodableValue& params, auto&& reply) {
    reply->SendResult(2 * params.Get<int32_t>());
  });
  server_->OnRequest("throw",
                     [](const auto&, const auto&, auto&&) { throw std::runtime_error("cause"); });
  EXPECT_EQ("", service_.Take());
  server_->Run();
  EXPECT_EQ("run", service_.Take());
  EXPECT_EQ(sizeof(TAVORpcServerSlots), service_.server_slots.size);
  EXPECT_EQ(nullptr, service_.server_slots.Release);
  Request(1, "flrpc.connected", 1);
  EXPECT_TRUE(service_.sent.empty());  // It waits.
  Start(-7, 2);
  ASSERT_EQ(1u, service_.sent.size());
  Request(2, "double", 3);
  Request(3, "unknown", 0);
  Deliver("", 4);
  ASSERT_EQ(3u, service_.sent.size());
  EXPECT_EQ(EncodableValue(42), *service_.sent[1].GetResponse()->GetResult());
  EXPECT_EQ(-32601, service_.sent[2].GetResponse()->GetError()->code);
  Request(4, "throw", 5);
  EXPECT_EQ("[error] Stray exception in OnMessage: cause", log_.TakeLine());
  Deliver(nullptr, 6);
  EXPECT_NE(std::string::npos, log_.TakeLine().find("construction from null"));
  EXPECT_EQ("unlock 1, unlock 2, unlock 3, unlock 4, unlock 5, unlock 6", service_.Take());
}

TEST_F(RpcServerTest, NothingGoesToTheServiceAfterItsEnd) {
  std::unique_ptr<flrpc::IReply> kept;
  server_->OnRequest("keep",
                     [&](const auto&, const auto&, auto&& reply) { kept = std::move(reply); });
  server_->Run();
  Start(0, 0);
  Request(1, "flrpc.connected", 0);
  Request(2, "keep", 0);
  ASSERT_TRUE(kept);
  service_.Take();
  service_.sent.clear();
  server_.reset();
  kept->SendResult(1);
  Start(0, 7);
  Deliver("late", 8);
  EXPECT_TRUE(service_.told.empty() && service_.sent.empty());
}

// ---- IntentManager ----

class IntentManagerTest : public WrapperTest, public testing::WithParamInterface<ForgeResult> {};

// The outcome of what the service has taken over is told, also after the manager; anything else is
// dropped.
TEST_P(IntentManagerTest, CallbackIsToldOrDropped) {
  service_.result = GetParam();
  TAVOIntentManagerProcTable table{};
  table.size = sizeof table;
  table.OpenUri = [](_TAVOIntentManagerRef*, const char* uri, TAVOOpenUriSlot* slot) {
    service->Tell(uri);
    EXPECT_EQ(sizeof *slot, slot->size);
    service->uri_slot = *slot;
    return service->result;
  };
  const auto told = std::make_shared<std::vector<bool>>();
  tavo::IntentManager::Create(Bind(table), reinterpret_cast<_TAVOIntentManagerRef*>(7))
      ->OpenUri("a:b", [told](bool success) { told->push_back(success); });
  EXPECT_EQ("a:b", service_.Take());
  if (GetParam() == FORGE_RESULT_OK) {
    service_.uri_slot.callback(service_.uri_slot.user_data, true);
    service_.uri_slot.release(service_.uri_slot.user_data);
    EXPECT_EQ(std::vector<bool>{true}, *told);
  }
  EXPECT_EQ(1, told.use_count());
  table.OpenUri = nullptr;
  tavo::IntentManager::Create(Bind(table), reinterpret_cast<_TAVOIntentManagerRef*>(7))
      ->OpenUri("a:b", [told](bool) { ADD_FAILURE(); });
  EXPECT_EQ(1, told.use_count());
  EXPECT_EQ("[error] Method 'OpenUri' is not provided by the loaded API.", log_.TakeLine());
}

INSTANTIATE_TEST_SUITE_P(Results, IntentManagerTest, testing::Values(0u, 2u, 3u));

// ---- ManagerWrapper ----

class ManagerWrapperTest : public WrapperTest {
 protected:
  ManagerWrapperTest() {
    *static_cast<TAVOProcTable*>(library_->ResolveImpl("test_table")) = {
        sizeof(TAVOProcTable),
        [] { return Give<_TAVOManagerRef*>("initialize"); },
        [](_TAVOManagerRef*) { service->Tell("release manager"); },
        [](_TAVOManagerRef*) { return Give<_TAVOIntentManagerRef*>("intents"); },
        [](TAVOIntentManagerProcTable*, unsigned int) { return Load("load intents"); },
        [](_TAVOManagerRef*) { return Give<_TAVORpcClientRef*>("client"); },
        [](TAVORpcClientProcTable* table, unsigned int) {
          *table = MakeClientTable();
          return Load("load client");
        },
        [](_TAVOManagerRef*) { return Give<_TAVORpcServerRef*>("server"); },
        [](TAVORpcServerProcTable* table, unsigned int) {
          *table = MakeServerTable();
          return Load("load server");
        }};
  }

  static ForgeResult Load(const char* call) {
    service->Tell(call);
    return service->result;
  }

  std::unique_ptr<tavo::ManagerWrapper> Create() {
    return tavo::ManagerWrapper::Create(nullptr, library_->GetPath().parent_path() / "");
  }

  const std::shared_ptr<forge::Library> library_ =
      forge::Library::Create(TAVO_TEST_SERVICE_LIBRARY);
};

TEST_F(ManagerWrapperTest, OrderOfBindingAndAskingIsKept) {
  auto manager = Create();
  EXPECT_EQ("initialize", service_.Take());
  const auto intents = manager->GetIntentManager();
  EXPECT_EQ("load intents, intents", service_.Take());
  const auto client = manager->CreateIpcClient("worker");
  EXPECT_EQ(0u, service_.Take().find("client, load client, start worker "));
  const auto server = manager->CreateRpcServer();
  EXPECT_EQ("server, load server", service_.Take());
  manager.reset();
  EXPECT_EQ("release manager", service_.Take());
}

// Null references are the service's to report; a table that cannot be bound is told.
TEST_F(ManagerWrapperTest, RefusalsOfTheServiceGiveNull) {
  const auto manager = Create();
  service_.gives_null = true;
  EXPECT_EQ(nullptr, Create());
  service_.Take();
  EXPECT_EQ(nullptr, manager->GetIntentManager());
  EXPECT_EQ(nullptr, manager->CreateIpcClient("w"));
  EXPECT_EQ(nullptr, manager->CreateRpcServer());
  EXPECT_EQ("load intents, intents, client, server", service_.Take());
  service_.gives_null = false;
  service_.result = FORGE_RESULT_INVALID_ARGUMENT;
  EXPECT_EQ(nullptr, manager->GetIntentManager());
  EXPECT_EQ(nullptr, manager->CreateIpcClient("w"));
  EXPECT_EQ(nullptr, manager->CreateRpcServer());
  EXPECT_EQ(std::vector<std::string>(3, "[error] Failed to load proc table."), log_.TakeLines());
}

TEST_F(ManagerWrapperTest, PluginsAreServedByTheirApplicationsDirectory) {
  EXPECT_EQ(nullptr, tavo::ManagerWrapper::Create(nullptr));
  test::FakeEmbedder embedder;
  embedder.text = std::filesystem::path(TAVO_TEST_SERVICE_LIBRARY).parent_path();
  {
    cw::PluginRegistrar registrar(embedder.GetContext());
    EXPECT_TRUE(tavo::ManagerWrapper::Create(&registrar));
    embedder.text = "/nowhere";
    EXPECT_EQ(nullptr, tavo::ManagerWrapper::Create(&registrar));
    EXPECT_EQ(0u,
              log_.TakeLine().find("[error] Couldn't load library \"\"/nowhere/libtavo.so\"\""));
  }
  cw::PluginRegistrar without(embedder.GetContext(offsetof(FlutterOstrelPluginContext, view)));
  EXPECT_EQ(nullptr, tavo::ManagerWrapper::Create(&without));
}

}  // namespace
