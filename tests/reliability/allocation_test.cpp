// Every allocation of every operation fails once, and from there on for ever: nothing crashes, no
// exception leaves a C function, nothing is lost or leaked, and the next call works.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <new>

#include "cw/plugin_registrar.h"
#include "forge/library.h"
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
    {"ServerUnlock", PrepareServer,
     [](World& w) {
       w.server_table.UnlockResources(w.raw_server, 4711);
       return true;
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
     [](World& w) {
       w.intent_answer = {};
       return Makes<test::kIntentAnswer>(w, [&] { w.InvokeIntent(); }) && w.HasWholeAnswer();
     },
     [](World& w) { return w.intent_answer.isEmpty() || w.HasWholeAnswer(); }, true, true},
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

// A plug-in over an embedder that is played, whose own allocations succeed.
struct Plugin {
  explicit Plugin(test::LogCapture& log) : log_(log) {
    using Context = FlutterOstrelPluginContext;
    using Application = FlutterOstrelApplicationProcTable;
    using View = FlutterOstrelViewProcTable;
    using Messenger = FlutterOstrelMessengerProcTable;
    Spare<&Context::ApplicationProcTableLoad, &Context::ViewProcTableLoad,
          &Context::MessengerProcTableLoad, &Context::TextureProcTableLoad,
          &Context::EngineDestroyedSubscribe>(embedder.context);
    Spare<&Application::CreateMainWindow>(embedder.application);
    Spare<&View::LockResources, &View::UnlockResources, &View::GetWindowPayload,
          &View::CreatePopupWindow, &View::CloseWindow>(embedder.view);
    Spare<&Messenger::Send, &Messenger::SetMessageHandler, &Messenger::ChannelUpdateSubscribe>(
        embedder.messenger);
    embedder.answers = {{"GetWindowPayload", 0}, {"CreateMainWindow", 0}};
    const forge::Buffer bytes = value.Serialize();
    embedder.payload.assign(bytes.GetData(), bytes.GetData() + bytes.GetSize());
    Load();
  }
  ~Plugin() {
    EndEngine();
    embedder.ReleaseSlot();
    EXPECT_EQ(1, token.use_count()) << "A callback was not freed.";
    const std::string lines = log_.TakeText();
    if (testing::Test::HasFailure()) std::cerr << lines;
  }

  template <auto... kEntries, typename Table>
  static void Spare(Table& table) {
    (SpareOne<kEntries>(table), ...);
  }
  template <auto kEntry, typename Table>
  static void SpareOne(Table& table) {
    static const auto entry = table.*kEntry;  // Each embedder's is the same.
    table.*kEntry = [](auto... arguments) {
      const FailingNew::Pause pause;
      return entry(arguments...);
    };
  }

  bool Load() {
    registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(embedder.GetContext());
    return registrar != nullptr;
  }
  void EndEngine() { embedder.engine_destroyed(embedder.context.engine); }

  auto Count() {
    return [this, token = token](auto&&...) { ++calls; };
  }
  void SetHandler() {
    registrar->GetMessenger()->SetMessageHandler(
        "channel", [token = token](const uint8_t* data, size_t size, const auto& reply) {
          reply(data, size);
        });
  }
  // The embedder wants one answer in any case. Is it the whole one?
  bool Deliver() {
    answers.clear();
    embedder.message_callback(embedder.context.engine, "channel", embedder.payload.data(),
                              embedder.payload.size(), TakeAnswer,
                              reinterpret_cast<_FlutterOstrelResponse*>(this), embedder.user_data);
    EXPECT_EQ(1u, answers.size());
    return !answers.empty() && answers.front() == embedder.payload.size();
  }
  static void TakeAnswer(_FlutterOstrelEngine*, _FlutterOstrelResponse* response, const uint8_t*,
                         size_t size) {
    const FailingNew::Pause pause;
    reinterpret_cast<Plugin*>(response)->answers.push_back(size);
  }

  // What a window that was opened answers comes in any case, if need be with less.
  bool CloseOther() {
    calls = 0;
    embedder.Call(embedder.payload, World::kLongText);
    EXPECT_EQ(1, calls);
    embedder.ReleaseSlot();
    return calls == 1;
  }

  void CheckChunks() {
    const auto entries = embedder.TakeCalls();
    EXPECT_EQ(std::count(entries.begin(), entries.end(), "LockResources"),
              std::count(entries.begin(), entries.end(), "UnlockResources"));
  }
  void CheckItWorks() {
    SetHandler();
    EXPECT_TRUE(Deliver());
  }

  test::FakeEmbedder embedder;
  cw::PluginRegistrar* registrar = nullptr;
  const cw::EncodableValue value{std::string(World::kLongText)};
  const std::shared_ptr<int> token = std::make_shared<int>();
  std::vector<size_t> answers;  // To the last message, by their sizes.
  int calls = 0;

 private:
  test::LogCapture& log_;
};

void JustThat(Plugin&) {}

// What a plug-in calls: C++, which may throw.
Row<Plugin> Call(const char* name, bool (*act)(Plugin&), void (*prepare)(Plugin&) = JustThat) {
  return {name, prepare, act, nullptr, true, true};
}

const Row<Plugin> kPluginRows[] = {
    Call(
        "Registrar", [](Plugin& p) { return p.Load(); }, [](Plugin& p) { p.EndEngine(); }),
    {"ChannelMessage", [](Plugin& p) { p.SetHandler(); }, [](Plugin& p) { return p.Deliver(); }},
    Call("ChannelSend",
         [](Plugin& p) {
           const auto& bytes = p.embedder.payload;
           p.registrar->GetMessenger()->Send("channel", bytes.data(), bytes.size(), p.Count());
           p.embedder.reply_callback(bytes.data(), bytes.size(), p.embedder.user_data);
           return p.calls > 0;
         }),
    Call("ChannelUpdate",
         [](Plugin& p) {
           p.registrar->GetMessenger()->OnChannelUpdateSubscribe("channel", p.Count());
           p.embedder.Call(true);
           return p.calls > 0;
         }),
    {"WindowPayload", JustThat,
     [](Plugin& p) { return p.registrar->GetView()->GetWindowPayload() == p.value; }},
    Call("PopupWindow",
         [](Plugin& p) {
           p.registrar->GetView()->CreatePopupWindow("entry", "", &p.value, p.Count());
           return p.CloseOther();
         }),
    Call("MainWindow",
         [](Plugin& p) {
           p.registrar->GetApplication()->CreateMainWindow("", "", &p.value, p.Count());
           return p.CloseOther();
         }),
    Call("CloseWindow",
         [](Plugin& p) {
           p.registrar->GetView()->CloseWindow(p.value);
           return p.embedder.data == p.embedder.payload;
         }),
};

template <typename Subject>
class FailingTest : public test::TestBase, public testing::WithParamInterface<Row<Subject>> {
 protected:
  test::LogCapture log_;
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};
};
template <typename Subject>
std::string GetName(const testing::TestParamInfo<Row<Subject>>& row) {
  return row.param.name;
}

using AllocationTest = FailingTest<World>;
TEST_P(AllocationTest, MayFail) { FailEach(log_, GetParam()); }
INSTANTIATE_TEST_SUITE_P(Operations, AllocationTest, testing::ValuesIn(kRows), GetName<World>);

using PluginAllocationTest = FailingTest<Plugin>;
TEST_P(PluginAllocationTest, MayFail) { FailEach(log_, GetParam()); }
INSTANTIATE_TEST_SUITE_P(Operations, PluginAllocationTest, testing::ValuesIn(kPluginRows),
                         GetName<Plugin>);

// ---- The process's first call -------------------------------------------------------------------

enum Outcome { kHeld, kStarted, kWithoutService, kBroken };

// The service does not try again: there is one from then on, or none.
Outcome StartService(long n, bool for_ever) {
  test::LogCapture log;
  const std::filesystem::path path = TAVO_TEST_SERVICE_LIBRARY;
  const auto library = forge::Library::Create(path);
  auto* table = static_cast<TAVOProcTable*>(library->ResolveImpl("test_table"));
  TAVOProcTableLoad(table, sizeof *table);
  const auto start = [&path] { return tavo::ManagerWrapper::Create(nullptr, path.parent_path()); };
  bool has_failed = false;
  bool is_done = false;
  {
    const FailingNew failing(n, for_ever, true);
    try {
      is_done = start() != nullptr;
    } catch (const std::bad_alloc&) {
    }
    has_failed = failing.HasFailed();
  }
  const bool is_there = table->Initialize() != nullptr;
  EXPECT_TRUE(is_there || !is_done);
  EXPECT_EQ(is_there, start() != nullptr);
  if (is_there) World(log).CheckItWorks();
  log.TakeText();
  if (testing::Test::HasFailure() || is_done == has_failed) return kBroken;
  return is_done ? kHeld : is_there ? kStarted : kWithoutService;
}

class StartAllocationTest : public test::TestBase {};

TEST_F(StartAllocationTest, MayFail) {
  std::array<int, kBroken + 1> outcomes{};
  for (const bool for_ever : {false, true}) {
    int status = kBroken;
    for (long n = 1; status != kHeld && !HasFailure(); ++n) {
      const pid_t child = fork();
      if (child == 0) _exit(StartService(n, for_ever));
      ASSERT_EQ(child, waitpid(child, &status, 0));
      ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < kBroken) << n << ' ' << status;
      ++outcomes[WEXITSTATUS(status)];
    }
  }
  EXPECT_GT(outcomes[kStarted], 0);
  EXPECT_GT(outcomes[kWithoutService], 0);
}

}  // namespace
