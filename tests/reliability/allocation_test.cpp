// Every allocation of every operation fails once, and from there on for ever: nothing crashes, no
// exception leaves a C function, nothing is lost or leaked, and the next call works.
#include <sys/wait.h>
#include <unistd.h>

#include <new>

#include "cw/plugin_registrar.h"
#include "tests/reliability/world.h"
#include "tests/support/failing_new.h"
#include "tests/support/fake_embedder.h"

namespace {

using test::FailingNew;
using test::World;

// An operation upon a subject of its own.
template <typename Subject>
struct Row {
  const char* name;
  void (*prepare)(Subject& subject);
  bool (*act)(Subject& subject);              // With failing allocations. Did it succeed?
  bool (*holds)(Subject& subject) = nullptr;  // What must be so afterwards, whatever failed.
  bool is_repeated = true;                    // The operation again, with memory, must succeed.
  bool may_throw = false;                     // To its C++ caller.
  bool with_qt = true;                        // False where it connects a signal: Qt leaks then.
};

template <typename Subject>
void PrintTo(const Row<Subject>& row, std::ostream* out) {
  *out << row.name;
}

// Returns whether an allocation failed.
template <typename Subject>
bool RunOnce(Subject& subject, const Row<Subject>& row, long n, bool for_ever) {
  row.prepare(subject);
  bool has_failed = false;
  bool has_thrown = false;
  bool is_done = false;
  {
    const FailingNew failing(n, for_ever, row.with_qt);
    try {
      is_done = row.act(subject);
    } catch (const std::bad_alloc&) {
      has_thrown = true;
    }
    has_failed = failing.HasFailed();
  }
  EXPECT_TRUE(!has_thrown || row.may_throw);
  EXPECT_TRUE(is_done || has_failed);
  EXPECT_TRUE(!row.holds || row.holds(subject));
  EXPECT_TRUE(!row.is_repeated || row.act(subject));
  subject.CheckChunks();
  subject.CheckItWorks();
  return has_failed;
}

template <typename Subject>
void FailEach(test::LogCapture& log, const Row<Subject>& row) {
  // A first run makes what stays for good.
  constexpr long kNever = 1L << 30;
  {
    Subject subject(log);
    RunOnce(subject, row, kNever, false);
  }
  for (const bool for_ever : {false, true}) {
    bool has_failed = true;
    for (long n = 1; has_failed && !testing::Test::HasFailure(); ++n) {
      const auto text = "allocation " + std::to_string(n) + (for_ever ? " and later" : "");
      SCOPED_TRACE(text);
      const long live = FailingNew::CountLive();
      {
        Subject subject(log);
        has_failed = RunOnce(subject, row, n, for_ever);
      }
      EXPECT_EQ(live, FailingNew::CountLive()) << "blocks";
    }
  }
}

void Nothing(World&) {}
void DropService(World& w) { w.top.Release(w.manager_ref); }
void PrepareStart(World& w) {
  w.CreateRaw();
  w.StartRaw();
}
void PrepareRaw(World& w) { w.RunRaw(); }
void PrepareServer(World& w) { w.RunRawServer(); }
void PrepareConnection(World& w) { w.Connect(); }
void PrepareRequests(World& w) {
  w.Connect();
  for (int i = 0; i < 3; ++i) w.Request(test::kResponse);
}

template <test::Callback kCallback, int kTimes>
bool Called(World& w) {
  return w.calls[kCallback] == kTimes;
}

template <test::Callback kCallback, typename Function>
bool Makes(World& w, Function&& function) {
  const int before = w.calls[kCallback];
  function();
  return w.calls[kCallback] > before;
}

const Row<World> kRows[] = {
    {"LoadTables", Nothing,
     [](World& w) {
       TAVOProcTable table;
       return TAVOProcTableLoad(&table, sizeof table) == FORGE_RESULT_OK &&
              TAVOProcTableLoad(nullptr, 0) == FORGE_RESULT_INVALID_ARGUMENT &&
              w.top.RpcClientProcTableLoad(nullptr, 0) == FORGE_RESULT_INVALID_ARGUMENT &&
              w.top.RpcServerProcTableLoad(nullptr, 0) == FORGE_RESULT_INVALID_ARGUMENT &&
              w.top.IntentManagerProcTableLoad(nullptr, 0) == FORGE_RESULT_INVALID_ARGUMENT;
     }},
    {"GetIntentManager", DropService,
     [](World& w) { return w.top.GetIntentManager(w.manager_ref) != nullptr; }, nullptr, true,
     false, false},
    {"GetRpcServer", DropService,
     [](World& w) { return w.top.GetRpcServer(w.manager_ref) != nullptr; }},
    {"CreateRpcClient", Nothing, [](World& w) { return w.CreateRaw(); }},
    {"StartTask", [](World& w) { w.CreateRaw(); }, [](World& w) { return w.StartRaw(); }, nullptr,
     false},
    {"TaskStarted", PrepareStart,
     [](World& w) {
       w.platform.tasks.back()->Started();
       return true;
     },
     Called<test::kStarted, 1>, false, false, false},
    {"TaskFailed", PrepareStart,
     [](World& w) {
       w.platform.tasks.back()->Started({1, QStringLiteral("a cause that is a long text")});
       return true;
     },
     Called<test::kStarted, 1>, false},
    {"ClientSend", PrepareRaw, [](World& w) { return w.SendRaw(); }},
    {"ClientMessage", PrepareRaw,
     [](World& w) { return Makes<test::kMessage>(w, [&] { w.raw_channel->Receive(w.message); }); }},
    {"ClientUnlock", PrepareRaw,
     [](World& w) {
       w.client_table.UnlockResources(w.raw, 4711);
       return true;
     }},
    {"ClientRelease", PrepareRaw,
     [](World& w) {
       w.client_table.Release(w.raw);
       w.Settle();
       return true;
     },
     Called<test::kRelease, 1>, false},
    {"ServerRun", Nothing,
     [](World& w) {
       w.RunRawServer();
       return w.calls[test::kServerStarted] == 1;
     },
     Called<test::kServerRelease, 0>, true, false, false},
    {"ServerSend", PrepareServer,
     [](World& w) {
       return w.server_table.SendMessage(w.raw_server, World::kLongText) == FORGE_RESULT_OK;
     }},
    {"ServerMessage", PrepareServer,
     [](World& w) {
       return Makes<test::kServerMessage>(w, [&] { w.server_channel->Receive(w.message); });
     }},
    {"OpenUri", Nothing, [](World& w) { return w.OpenRawUri(); }},
    {"UriAnswer",
     [](World& w) {
       for (int i = 0; i < 3; ++i) w.OpenRawUri();
     },
     [](World& w) {
       w.Settle();
       return true;
     },
     Called<test::kUri, 3>},
    {"RegisterIntent", Nothing, [](World& w) { return w.RegisterIntent(); }},
    {"InvokeIntent", [](World& w) { w.RegisterIntent(); },
     [](World& w) { return Makes<test::kIntentAnswer>(w, [&] { w.InvokeIntent(); }); }, nullptr,
     true, true},
    {"ReleaseManager",
     [](World& w) {
       w.RunRaw();
       w.RunRawServer();
       w.OpenRawUri();
       w.RegisterIntent();
     },
     [](World& w) {
       w.top.Release(w.manager_ref);
       return true;
     },
     [](World& w) {
       return w.calls[test::kRelease] == 1 && w.calls[test::kServerRelease] == 1 &&
              w.calls[test::kUriRelease] == 1;
     }},
    {"CreateWrapper", [](World& w) { w.manager.reset(); },
     [](World& w) { return w.CreateManager(); }, nullptr, true, true},
    {"CreateClient", Nothing,
     [](World& w) {
       w.CreateClient();
       return w.client && !w.platform.tasks.empty();
     },
     nullptr, true, true},
    {"Serve", Nothing,
     [](World& w) {
       w.Serve();
       return w.server_channel != nullptr;
     },
     nullptr, false, true, false},
    {"Handshake",
     [](World& w) {
       w.Serve();
       w.CreateClient();
     },
     [](World& w) {
       w.Handshake();
       return w.client->IsConnected();
     },
     nullptr, false, true, false},
    {"Request", PrepareConnection,
     [](World& w) {
       return Makes<test::kResponse>(w, [&] {
         w.Request(test::kResponse);
         w.Settle();
       });
     },
     nullptr, true, true},
    {"Notifications", PrepareConnection,
     [](World& w) {
       const int before = w.calls[test::kNotification] + w.calls[test::kServerNotification];
       w.client->SendNotify("tell", World::kLongText);
       w.server->SendNotify("tell", World::kLongText);
       w.Settle();
       return w.calls[test::kNotification] + w.calls[test::kServerNotification] >= before + 2;
     },
     nullptr, true, true},
    {"Disconnect", PrepareRequests,
     [](World& w) {
       w.top.Release(w.manager_ref);
       return w.client->HasConnectionFailed();
     },
     [](World& w) { return w.client->HasConnectionFailed(); }},
    {"DropClient", PrepareRequests,
     [](World& w) {
       w.client.reset();
       return true;
     }},
    {"FailedConnection",
     [](World& w) {
       w.CreateClient();
       w.client->Run();
       w.Request(test::kResponse);
     },
     [](World& w) {
       w.platform.tasks.back()->Started({1, QStringLiteral("a cause that is a long text")});
       return true;
     },
     [](World& w) { return w.client->HasConnectionFailed(); }, false},
    {"WrapperUri", Nothing,
     [](World& w) {
       return Makes<test::kWrapperUri>(w, [&] {
         w.intents->OpenUri("a:", w.Count(test::kWrapperUri));
         w.Settle();
       });
     },
     nullptr, true, true},
};

class AllocationTest : public test::TestBase, public testing::WithParamInterface<Row<World>> {
 protected:
  test::LogCapture log_;
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};
};

TEST_P(AllocationTest, MayFail) { FailEach(log_, GetParam()); }

INSTANTIATE_TEST_SUITE_P(Operations, AllocationTest, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
