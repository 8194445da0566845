// Every callback of the system does everything that the system offers: each pair in a world of its
// own, with an application object and without. Sanitizers watch, and the alarm ends a deadlock.
#include <stdexcept>

#include "tests/reliability/world.h"

namespace {

using test::World;

struct Row {
  const char* name;
  test::Callback callback;
  void (*fire)(World& world);  // Makes it called, at least once.
  bool is_once = false;        // At most once, whatever it does.
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

void Tell(World& world, bool to_server) {
  world.Connect();
  to_server ? world.client->SendNotify("tell", {}) : world.server->SendNotify("tell", {});
}

constexpr Row kRows[] = {
    {"ClientStarted", test::kStarted, [](World& w) { w.RunRaw(); }},
    {"ClientFailed", test::kStarted,
     [](World& w) {
       w.CreateRaw();
       w.StartRaw();
       w.platform.tasks.back()->Started({1, QStringLiteral("no such task")});
     }},
    {"ClientMessage", test::kMessage, [](World& w) { w.raw_channel->Receive(w.message); }},
    {"ClientDisconnect", test::kDisconnect, [](World& w) { w.client_table.Release(w.raw); }},
    {"ClientSlotRelease", test::kRelease, [](World& w) { w.client_table.Release(w.raw); }},
    {"ServerStarted", test::kServerStarted, [](World& w) { w.RunRawServer(); }, true},
    {"ServerMessage", test::kServerMessage,
     [](World& w) {
       w.RunRawServer();
       w.server_channel->Receive(w.message);
     }},
    {"ServerSlotRelease", test::kServerRelease,
     [](World& w) {
       w.RunRawServer();
       w.manager.reset();
     },
     true},
    {"UriCompletion", test::kUri,
     [](World& w) {
       w.OpenRawUri();
       w.OpenRawUri();
     }},
    {"UriSlotRelease", test::kUriRelease, [](World& w) { w.OpenRawUri(); }},
    {"IntentInvoked", test::kIntent,
     [](World& w) {
       w.RegisterIntent();
       w.InvokeIntent();
     }},
    {"IntentAnswered", test::kIntentAnswer,
     [](World& w) {
       w.RegisterIntent();
       w.InvokeIntent();
     }},
    {"IntentSlotRelease", test::kIntentRelease,
     [](World& w) {
       w.RegisterIntent();
       w.RegisterIntent();
     }},
    {"Connected", test::kConnected, [](World& w) { w.Connect(); }, true},
    {"ConnectingFailed", test::kConnected,
     [](World& w) {
       w.CreateClient();
       w.platform.tasks.back()->Started({1, QStringLiteral("no such task")});
     },
     true},
    {"Disconnected", test::kDisconnected,
     [](World& w) {
       w.Connect();
       w.manager.reset();
     },
     true},
    {"Response", test::kResponse,
     [](World& w) {
       w.Connect();
       w.Request(test::kResponse);
     },
     true},
    {"FailedResponse", test::kResponse,
     [](World& w) {
       w.Connect();
       w.Request(test::kResponse);
       w.manager.reset();
     },
     true},
    {"Notification", test::kNotification, [](World& w) { Tell(w, false); }},
    {"ServerConnected", test::kServerConnected, [](World& w) { w.Connect(); }, true},
    {"RequestHandler", test::kRequest,
     [](World& w) {
       w.Connect();
       w.Request(test::kOther);
     }},
    {"ServerNotification", test::kServerNotification, [](World& w) { Tell(w, true); }},
    {"WrapperUri", test::kWrapperUri,
     [](World& w) { w.intents->OpenUri("a:", w.Count(test::kWrapperUri)); }, true},
};

struct Action {
  const char* name;
  void (*run)(World& world);
};

constexpr Action kActions[] = {
    {"send",
     [](World& w) {
       w.SendRaw();
       w.server_table.SendMessage(w.raw_server, World::kLongText);
       if (w.client) w.client->SendNotify("tell", {});
       if (w.server) w.server->SendNotify("tell", {});
     }},
    {"request", [](World& w) { w.Request(test::kOther); }},
    {"subscribe",
     [](World& w) {
       w.RegisterIntent();
       w.RunRawServer();
       if (w.client) {
         w.client->OnNotify("tell", w.Count(test::kOther));
         w.client->OnConnected(w.Count(test::kOther));
         w.client->OnDisconnected(w.Count(test::kOther));
       }
       if (w.server) {
         w.server->OnNotify("tell", w.Count(test::kOther));
         w.server->OnConnected(w.Count(test::kOther));
         w.server->OnRequest("echo",
                             [](const auto&, const auto&, auto&& reply) { reply->SendResult({}); });
       }
     }},
    {"start another",
     [](World& w) {
       if (w.manager) w.manager->CreateIpcClient("other")->Run();
       w.CreateRaw();
       if (w.StartRaw()) w.platform.tasks.back()->Started();
     }},
    {"run again",
     [](World& w) {
       if (w.client) w.client->Run();
       if (w.server) w.server->Run();
     }},
    {"release the client",
     [](World& w) {
       w.client_table.Release(w.raw);
       w.client_table.Release(w.raw);
     }},
    {"drop the wrapper",
     [](World& w) {
       w.client.reset();
       w.server.reset();
       w.intents.reset();
     }},
    {"drop the manager", [](World& w) { w.manager.reset(); }},
    {"drop the manager and what it serves",
     [](World& w) {
       w.client.reset();
       w.manager.reset();
       w.server.reset();
       w.client_table.Release(w.raw);
     }},
    {"open a URI",
     [](World& w) {
       w.OpenRawUri();
       w.platform.ReplyToIntent(0);
       if (w.intents) w.intents->OpenUri("b:", w.Count(test::kOther));
     }},
    {"unlock",
     [](World& w) {
       for (const unsigned int id : {w.chunk, w.chunk, 4711u, 0u}) {
         w.client_table.UnlockResources(w.raw, id);
         w.server_table.UnlockResources(w.raw_server, id);
       }
       w.chunk = 0;
     }},
    {"throw", [](World&) { throw std::runtime_error("unhappy"); }},
};

class ReentrancyTest : public test::TestBase, public testing::WithParamInterface<Row> {
 protected:
  void RunPair(const Row& row, const Action& action) {
    World world(log_);
    world.RunRaw();
    world.calls = {};
    world.hooked = row.callback;
    world.hook = [&] { action.run(world); };
    row.fire(world);
    world.Settle();
    const int calls = world.calls[row.callback];
    EXPECT_TRUE(calls == 1 || (calls > 1 && !row.is_once)) << calls << " calls";
    const bool is_throw = world.CountLines("Stray exception") > 0;
    EXPECT_EQ(std::string(action.name) == "throw", is_throw);
    world.CheckChunks();
    world.CheckItWorks();
  }

  void SetUp() override {
    MakeApplication();  // The first one opens what stays open.
    TestBase::SetUp();
  }

  static std::unique_ptr<QCoreApplication> MakeApplication() {
    static int argc = 0;
    return std::make_unique<QCoreApplication>(argc, nullptr);
  }

  test::LogCapture log_;
};

TEST_P(ReentrancyTest, MayDoAnything) {
  for (const bool has_application : {true, false}) {
    const auto app = has_application ? MakeApplication() : nullptr;
    for (const Action& action : kActions) {
      SCOPED_TRACE(std::string(action.name) + (app ? "" : ", without an application object"));
      RunPair(GetParam(), action);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Callbacks, ReentrancyTest, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
