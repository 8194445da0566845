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
using Events = std::vector<std::string>;

// The service, played by the test: what was called, and what the entries answer.
struct Service {
  Events events;
  std::vector<Message> sent;
  TAVORpcClientSlots client_slots{};
  TAVORpcServerSlots server_slots{};
  TAVOOpenUriSlot uri_slot{};
  ForgeResult result = FORGE_RESULT_OK;
  bool gives_null = false;

  Events Take() { return std::exchange(events, {}); }
};
Service* service = nullptr;

template <typename Ref>
Ref Give(const char* call) {
  service->events.push_back(call);
  return service->gives_null ? nullptr : reinterpret_cast<Ref>(7);
}

ForgeResult KeepSent(const char* text) {
  service->sent.push_back(Message::FromBase64(std::string(text)));
  return service->result;
}

void Unlock(unsigned int chunk_id) {
  service->events.push_back("unlock " + std::to_string(chunk_id));
}

TAVORpcClientProcTable MakeClientTable() {
  TAVORpcClientProcTable table{};
  table.size = sizeof table;
  table.StartTask = [](_TAVORpcClientRef*, const char* name, const char* directory,
                       TAVORpcClientSlots* slots) {
    service->events.push_back(std::string("start ") + name + " " + directory);
    service->client_slots = *slots;
    return service->result;
  };
  table.UnlockResources = [](_TAVORpcClientRef*, unsigned int chunk_id) { Unlock(chunk_id); };
  table.SendMessage = [](_TAVORpcClientRef*, const char* text) { return KeepSent(text); };
  table.Release = [](_TAVORpcClientRef*) { service->events.push_back("release"); };
  return table;
}

TAVORpcServerProcTable MakeServerTable() {
  TAVORpcServerProcTable table{};
  table.size = sizeof table;
  table.Run = [](_TAVORpcServerRef*, TAVORpcServerSlots* slots) {
    service->events.push_back("run");
    service->server_slots = *slots;
  };
  table.UnlockResources = [](_TAVORpcServerRef*, unsigned int chunk_id) { Unlock(chunk_id); };
  table.SendMessage = [](_TAVORpcServerRef*, const char* text) { return KeepSent(text); };
  return table;
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
 protected:
  static std::shared_ptr<flrpc::IClient> Create(const TAVORpcClientProcTable& table) {
    return tavo::RpcClient::Create(nullptr, "worker", Bind(table),
                                   reinterpret_cast<_TAVORpcClientRef*>(7));
  }

  void SetUp() override {
    WrapperTest::SetUp();
    client_ = Create(MakeClientTable());
    ASSERT_TRUE(client_);
    client_->OnConnected([this](const auto& error) { Note("connected", error); });
    client_->OnDisconnected([this](const auto& error) { Note("disconnected", error); });
  }

  void Note(const std::string& event, const std::optional<Message::Error>& error) {
    service_.events.push_back(event + ": " + Describe(error));
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
  void Connect() {
    client_->Run();
    Start(0, "", 0);
    const Message response = Message::CreateResponse(service_.sent.at(0).GetRequest()->id, {});
    Deliver(response.ToBase64().c_str(), 1);
    EXPECT_TRUE(client_->IsConnected());
    service_.Take();
  }

  std::shared_ptr<flrpc::IClient> client_;
};

TEST_F(RpcClientTest, StartsTheTaskWithItsLibrarysDirectory) {
  const std::string directory = std::filesystem::path(TAVO_TEST_SERVICE_LIBRARY).parent_path();
  EXPECT_EQ(Events{"start worker " + directory}, service_.Take());
  EXPECT_EQ(sizeof(TAVORpcClientSlots), service_.client_slots.size);
  EXPECT_EQ(nullptr, service_.client_slots.Release);
  client_.reset();
  EXPECT_EQ(Events{"release"}, service_.Take());
  Start(-32603, "late", 3);  // Nobody is there: nothing is given back, nothing told.
  Disconnect(0, "", 3);
  Deliver("late", 3);
  EXPECT_EQ(Events(), service_.Take());
}

TEST_F(RpcClientTest, FailedStartIsToldOnceAndSendsNothing) {
  service_.Take();
  client_->Run();
  client_->SendRequest("m", {}, [this](const Message::Response& response) {
    service_.events.push_back("response: " + std::to_string(response.GetError()->code));
  });
  Start(-32603, "no such task", 5);
  EXPECT_EQ((Events{"response: -32603", "connected: -32603 no such task", "unlock 5"}),
            service_.Take());
  EXPECT_TRUE(client_->HasConnectionFailed());
  EXPECT_TRUE(service_.sent.empty());
}

// The start may be reported before the plug-in asks for a connection.
TEST_F(RpcClientTest, ConnectsAlsoWhenTheTaskWasThereFirst) {
  Start(0, "", 0);
  EXPECT_TRUE(service_.sent.empty());
  client_->Run();
  ASSERT_EQ(1u, service_.sent.size());
  EXPECT_TRUE(service_.sent[0].IsRequest("flrpc.connected"));

  client_ = Create(MakeClientTable());
  Start(-1, "no task", 0);
  client_->Run();
  service_.Take();
  client_->OnConnected([this](const auto& error) { Note("connected", error); });
  EXPECT_EQ(Events{"connected: -1 no task"}, service_.Take());
  EXPECT_EQ(1u, service_.sent.size());
}

TEST_F(RpcClientTest, NullTextsAreEmpty) {
  service_.Take();
  client_->Run();
  Start(1, nullptr, 0);  // A chunk 0 is not given back here, but below.
  EXPECT_EQ(Events{"connected: 1 "}, service_.Take());
  Disconnect(2, nullptr, 0);
  EXPECT_EQ(Events{"unlock 0"}, service_.Take());
}

TEST_F(RpcClientTest, DisconnectIsToldWithItsError) {
  Connect();
  Disconnect(-5, "gone", 9);
  EXPECT_EQ((Events{"disconnected: -5 gone", "unlock 9"}), service_.Take());
  const auto second = std::exchange(client_, Create(MakeClientTable()));
  client_->OnDisconnected([this](const auto& error) { Note("disconnected", error); });
  service_.sent.clear();
  Connect();
  Disconnect(0, "", 9);
  EXPECT_EQ((Events{"disconnected: -32603 Unknown runtime error", "unlock 9"}), service_.Take());
}

// Whatever becomes of a text, its chunk is given back.
TEST_F(RpcClientTest, ChunksAreGivenBackOnEveryPath) {
  Connect();
  client_->OnNotify("throw", [](const auto&) { throw std::runtime_error("cause"); });
  client_->OnNotify("hear", [this](const Message::Notification& notification) {
    service_.events.push_back(notification.params.Get<std::string>());
  });
  Deliver(Message::CreateNotification("hear", "news").ToBase64().c_str(), 2);
  EXPECT_EQ((Events{"news", "unlock 2"}), service_.Take());
  Deliver("", 3);
  EXPECT_EQ(Events{"unlock 3"}, service_.Take());
  Deliver(Message::CreateNotification("throw", {}).ToBase64().c_str(), 4);
  EXPECT_EQ(Events{"unlock 4"}, service_.Take());
  EXPECT_EQ("[error] Stray exception in OnMessage: cause", log_.TakeLine());
  Deliver(nullptr, 5);
  EXPECT_EQ(Events{"unlock 5"}, service_.Take());
  EXPECT_EQ(
      "[error] Stray exception in OnMessage: basic_string: construction from null is not valid",
      log_.TakeLine());
  Deliver("***", 6);
  EXPECT_EQ(Events{"unlock 6"}, service_.Take());
  EXPECT_FALSE(log_.TakeLines().empty());
  client_->OnNotify("drop", [this](const auto&) { client_.reset(); });
  Deliver(Message::CreateNotification("drop", {}).ToBase64().c_str(), 7);
  EXPECT_EQ((Events{"unlock 7", "release"}), service_.Take());
}

// ---- RpcServer ----

class RpcServerTest : public WrapperTest {
 protected:
  static std::shared_ptr<flrpc::IServer> Create(const TAVORpcServerProcTable& table) {
    return tavo::RpcServer::Create(nullptr, Bind(table), reinterpret_cast<_TAVORpcServerRef*>(7));
  }
  void Start(int code, unsigned int chunk_id) {
    service_.server_slots.OnStarted(service_.server_slots.user_data, code, nullptr, chunk_id);
  }
  void Deliver(const char* text, unsigned int chunk_id) {
    service_.server_slots.OnMessage(service_.server_slots.user_data, text, chunk_id);
  }
  void Deliver(const Message& message, unsigned int chunk_id) {
    Deliver(message.ToBase64().c_str(), chunk_id);
  }
};

TEST_F(RpcServerTest, AnswersOnceItsChannelIsOpenWhateverTheCode) {
  auto server = Create(MakeServerTable());
  server->OnRequest("double", [](const std::string&, const EncodableValue& params,
                                 std::unique_ptr<flrpc::IReply>&& reply) {
    reply->SendResult(2 * params.Get<int32_t>());
  });
  server->OnRequest("throw",
                    [](const auto&, const auto&, auto&&) { throw std::runtime_error("cause"); });
  EXPECT_EQ(Events(), service_.Take());
  server->Run();
  EXPECT_EQ(Events{"run"}, service_.Take());
  EXPECT_EQ(sizeof(TAVORpcServerSlots), service_.server_slots.size);
  EXPECT_EQ(nullptr, service_.server_slots.Release);
  Deliver(Message::CreateRequest(Message::ID(1), "flrpc.connected", {}), 1);
  EXPECT_TRUE(service_.sent.empty());  // It waits.
  Start(-7, 2);
  ASSERT_EQ(1u, service_.sent.size());
  Deliver(Message::CreateRequest(Message::ID(2), "double", 21), 3);
  Deliver(Message::CreateRequest(Message::ID(3), "unknown", {}), 0);
  Deliver("", 4);
  EXPECT_EQ((Events{"unlock 1", "unlock 2", "unlock 3", "unlock 4"}), service_.Take());
  ASSERT_EQ(3u, service_.sent.size());
  EXPECT_EQ(EncodableValue(42), *service_.sent[1].GetResponse()->GetResult());
  EXPECT_EQ(-32601, service_.sent[2].GetResponse()->GetError()->code);

  Deliver(Message::CreateRequest(Message::ID(4), "throw", {}), 5);
  EXPECT_EQ("[error] Stray exception in OnMessage: cause", log_.TakeLine());
  Deliver(static_cast<const char*>(nullptr), 6);
  EXPECT_NE(std::string::npos, log_.TakeLine().find("construction from null"));
  EXPECT_EQ((Events{"unlock 5", "unlock 6"}), service_.Take());

  std::unique_ptr<flrpc::IReply> kept;
  server->OnRequest("keep",
                    [&](const auto&, const auto&, auto&& reply) { kept = std::move(reply); });
  Deliver(Message::CreateRequest(Message::ID(5), "keep", {}), 0);
  service_.Take();
  service_.sent.clear();
  server.reset();
  kept->SendResult(1);
  Start(0, 7);
  Deliver("late", 8);
  EXPECT_EQ(Events(), service_.Take());
  EXPECT_TRUE(service_.sent.empty());
}

// ---- IntentManager ----

class IntentManagerTest : public WrapperTest {
 protected:
  static TAVOIntentManagerProcTable MakeTable() {
    TAVOIntentManagerProcTable table{};
    table.size = sizeof table;
    table.OpenUri = [](_TAVOIntentManagerRef*, const char* uri, TAVOOpenUriSlot* slot) {
      service->events.push_back(uri);
      EXPECT_EQ(sizeof *slot, slot->size);
      service->uri_slot = *slot;
      return service->result;
    };
    return table;
  }
  static std::unique_ptr<tavo::IntentManager> Create(const TAVOIntentManagerProcTable& table) {
    return tavo::IntentManager::Create(Bind(table), reinterpret_cast<_TAVOIntentManagerRef*>(7));
  }
};

TEST_F(IntentManagerTest, OutcomeIsToldAlsoAfterTheManager) {
  auto intents = Create(MakeTable());
  const auto token = std::make_shared<int>();
  std::vector<bool> told;
  intents->OpenUri("a:b", [&told, token](bool success) { told.push_back(success); });
  EXPECT_EQ(Events{"a:b"}, service_.Take());
  intents.reset();
  service_.uri_slot.callback(service_.uri_slot.user_data, true);
  service_.uri_slot.release(service_.uri_slot.user_data);
  EXPECT_EQ(std::vector<bool>{true}, told);
  EXPECT_EQ(1, token.use_count());
}

TEST_F(IntentManagerTest, RefusedAndMissingDropTheCallback) {
  const auto token = std::make_shared<int>();
  const auto open = [&](const TAVOIntentManagerProcTable& table) {
    Create(table)->OpenUri("a:b", [token](bool) { FAIL(); });
    EXPECT_EQ(1, token.use_count());
  };
  for (const ForgeResult result : {2u, 3u}) {
    service_.result = result;
    open(MakeTable());
  }
  auto table = MakeTable();
  table.OpenUri = nullptr;
  open(table);
  log_.TakeLine();
}

// ---- ManagerWrapper ----

class ManagerWrapperTest : public WrapperTest {
 protected:
  void SetUp() override {
    library_ = forge::Library::Create(TAVO_TEST_SERVICE_LIBRARY);
    ASSERT_TRUE(library_);
    top_ = static_cast<TAVOProcTable*>(library_->ResolveImpl("test_table"));
    *top_ = {};
    top_->size = sizeof *top_;
    top_->Initialize = [] { return Give<_TAVOManagerRef*>("initialize"); };
    top_->Release = [](_TAVOManagerRef*) { service->events.push_back("release manager"); };
    top_->GetIntentManager = [](_TAVOManagerRef*) {
      return Give<_TAVOIntentManagerRef*>("intents");
    };
    top_->CreateRpcClient = [](_TAVOManagerRef*) { return Give<_TAVORpcClientRef*>("client"); };
    top_->GetRpcServer = [](_TAVOManagerRef*) { return Give<_TAVORpcServerRef*>("server"); };
    top_->IntentManagerProcTableLoad = [](TAVOIntentManagerProcTable*, unsigned int) {
      service->events.push_back("load intents");
      return service->result;
    };
    top_->RpcClientProcTableLoad = [](TAVORpcClientProcTable* table, unsigned int) {
      service->events.push_back("load client");
      *table = MakeClientTable();
      return service->result;
    };
    top_->RpcServerProcTableLoad = [](TAVORpcServerProcTable* table, unsigned int) {
      service->events.push_back("load server");
      *table = MakeServerTable();
      return service->result;
    };
    WrapperTest::SetUp();
  }

  std::unique_ptr<tavo::ManagerWrapper> Create() {
    const auto directory = std::filesystem::path(TAVO_TEST_SERVICE_LIBRARY).parent_path();
    return tavo::ManagerWrapper::Create(nullptr, directory / "");
  }

  std::shared_ptr<forge::Library> library_;
  TAVOProcTable* top_ = nullptr;
};

TEST_F(ManagerWrapperTest, OrderOfBindingAndAskingIsKept) {
  auto manager = Create();
  EXPECT_EQ(Events{"initialize"}, service_.Take());
  const auto intents = manager->GetIntentManager();
  EXPECT_EQ((Events{"load intents", "intents"}), service_.Take());
  const auto client = manager->CreateIpcClient("worker");
  const Events events = service_.Take();
  EXPECT_EQ((Events{"client", "load client"}), Events(events.begin(), events.begin() + 2));
  const auto server = manager->CreateRpcServer();
  EXPECT_EQ((Events{"server", "load server"}), service_.Take());
  manager.reset();
  EXPECT_EQ(Events{"release manager"}, service_.Take());
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
  EXPECT_EQ((Events{"load intents", "intents", "client", "server"}), service_.Take());
  service_.gives_null = false;
  service_.result = FORGE_RESULT_INVALID_ARGUMENT;
  EXPECT_EQ(nullptr, manager->GetIntentManager());
  EXPECT_EQ(nullptr, manager->CreateIpcClient("w"));
  EXPECT_EQ(nullptr, manager->CreateRpcServer());
  EXPECT_EQ(Events(3, "[error] Failed to load proc table."), log_.TakeLines());
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
