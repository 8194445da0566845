#include "tests/reliability/scenarios.h"

namespace test {
namespace {

void Nothing(World&) {}
void Connect(World& w) { w.Connect(); }
void ReleaseManager(World& w) { w.top.Release(w.manager); }
void RegisterIntent(World& w) { w.is_done = w.RegisterIntent(); }
void RunServer(World& w) { w.is_done = w.RunRawServer(); }
void StartClient(World& w) { w.is_done = w.CreateRaw() && w.StartRaw(); }
void FailStart(World& w) {
  w.platform.tasks.back()->Started({1, QStringLiteral("a cause that is a long text")});
}
void SendRequests(World& w) {
  w.Connect();
  for (const Callback callback : {kResponse, kOther, kOther}) w.Request(callback);
}

}  // namespace

const Scenario kScenarios[]{
    {"LoadTables", kPlain, Calls(), Nothing,
     [](World& w) {
       TAVOProcTable table;
       w.is_done = TAVOProcTableLoad(&table, sizeof table) == FORGE_RESULT_OK;
     }},
    {"GetIntentManager", kConnects, Calls(), ReleaseManager,
     [](World& w) { w.is_done = w.top.GetIntentManager(w.manager) != nullptr; }},
    {"GetRpcServer", kPlain, Calls(), ReleaseManager,
     [](World& w) { w.is_done = w.top.GetRpcServer(w.manager) != nullptr; }},
    {"ReleaseManager", kIsSure | kIsTold, Calls(kDisconnect, kRelease, kServerRelease, kUriRelease),
     [](World& w) {
       w.RunRawServer();
       w.OpenRawUri();
       w.RegisterIntent();
     },
     ReleaseManager},

    // ---- The raw client ----
    {"CreateRpcClient", kPlain, Calls(), Nothing, [](World& w) { w.is_done = w.CreateRaw(); }},
    {"StartTask", kPlain, Calls(), Nothing, StartClient},
    {"TaskStarted", kIsSure | kIsTold | kConnects, Calls(kStarted), StartClient,
     [](World& w) { w.platform.tasks.back()->Started(); }},
    {"TaskFailed", kIsSure | kIsTold, Calls(kStarted), StartClient, FailStart},
    {"ClientSend", kPlain, Calls(), Nothing, [](World& w) { w.is_done = w.SendRaw(); }},
    {"ClientMessage", kPlain, Calls(kMessage), Nothing,
     [](World& w) { w.raw_channel->Receive(w.message); }},
    {"ClientRelease", kIsSure | kIsTold, Calls(kDisconnect, kRelease), Nothing,
     [](World& w) {
       w.client_table.Release(w.raw);
       w.client_table.Release(w.raw);
       w.Settle();
     }},

    // ---- The raw server, and chunks ----
    {"ServerRun", kConnects, Calls(kServerStarted), Nothing, RunServer},
    {"ServerSend", kPlain, Calls(), RunServer,
     [](World& w) {
       const auto result = w.server_table.SendMessage(w.raw_server, World::kLongText);
       w.is_done = result == FORGE_RESULT_OK;
     }},
    {"ServerMessage", kPlain, Calls(kServerMessage), RunServer,
     [](World& w) {
       if (w.server_channel) w.server_channel->Receive(w.message);
     }},
    {"Unlock", kPlain, Calls(), RunServer,
     [](World& w) {
       for (const unsigned int id : {w.chunk, w.chunk, 4711u, 0u}) {
         w.client_table.UnlockResources(w.raw, id);
         w.server_table.UnlockResources(w.raw_server, id);
       }
       w.chunk = 0;
     }},

    // ---- Intents ----
    {"OpenUri", kPlain, Calls(kUri, kUriRelease), [](World& w) { w.OpenRawUri(); },
     [](World& w) {
       w.is_done = w.OpenRawUri();
       w.Settle();
     }},
    {"RegisterIntent", kPlain, Calls(kIntentRelease), RegisterIntent, RegisterIntent},
    {"InvokeIntent", kMayThrow, Calls(kIntent, kIntentAnswer), RegisterIntent,
     [](World& w) { w.InvokeIntent(); }},
    {"WrapperUri", kMayThrow, Calls(kWrapperUri), Nothing,
     [](World& w) {
       if (w.intents) w.intents->OpenUri("a:", w.Count(kWrapperUri));
       w.Settle();
     }},

    // ---- The wrapper's client and server ----
    {"CreateWrapper", kMayThrow, Calls(), Nothing,
     [](World& w) {
       w.wrapper.reset();
       w.is_done = w.CreateWrapper();
     }},
    {"CreateClient", kMayThrow, Calls(), Nothing, [](World& w) { w.is_done = w.CreateClient(); }},
    {"Serve", kMayThrow | kConnects, Calls(), Nothing, [](World& w) { w.is_done = w.Serve(); }},
    {"Handshake", kMayThrow | kConnects | kIsFinal, Calls(kConnected, kServerConnected),
     [](World& w) {
       w.Serve();
       w.CreateClient();
     },
     [](World& w) { w.is_done = w.Handshake(); }},
    {"FailedConnection", kIsSure, Calls(kConnected),
     [](World& w) {
       w.CreateClient();
       w.client->Run();
       w.Request(kOther);
     },
     [](World& w) {
       FailStart(w);
       w.is_done = w.client && w.client->HasConnectionFailed();
     }},
    {"Request", kMayThrow, Calls(kRequest, kResponse), Connect,
     [](World& w) {
       w.Request(kResponse);
       w.Settle();
     }},
    {"Notifications", kMayThrow, Calls(kNotification, kServerNotification), Connect,
     [](World& w) {
       if (w.client) w.client->SendNotify("tell", World::kLongText);
       if (w.server) w.server->SendNotify("tell", World::kLongText);
       w.Settle();
     }},
    {"Subscribe", kMayThrow, Calls(), Connect,
     [](World& w) {
       if (w.client) w.Listen(*w.client);
       if (w.server) w.Listen(*w.server);
     }},
    {"RunAgain", kMayThrow, Calls(), Connect,
     [](World& w) {
       if (w.client) w.client->Run();
       if (w.server) w.server->Run();
     }},
    {"Disconnect", kIsSure, Calls(kDisconnected, kResponse), SendRequests,
     [](World& w) {
       ReleaseManager(w);
       w.is_done = w.client && w.client->HasConnectionFailed();
     }},
    {"DropWrapper", kPlain, Calls(), SendRequests,
     [](World& w) {
       w.client.reset();
       w.server.reset();
       w.intents.reset();
     }},
};

}  // namespace test
