// libtavo.so as its callers meet it: loaded by path, over the desk, with tasks in processes of
// their own.
#include <dlfcn.h>

#include <QJsonDocument>

#include "platform/runtime_manager/intents_invoker.h"
#include "src/tavo_capi.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/log_capture.h"

namespace {

using test::WaitUntil;

class ServiceTest : public test::DeskTest {
 protected:
  void SetUp() override {
    void* library = dlopen(TAVO_TEST_LIBS "/libtavo.so", RTLD_NOW);
    ASSERT_NE(nullptr, library) << dlerror();
    const auto load =
        reinterpret_cast<decltype(&TAVOProcTableLoad)>(dlsym(library, "TAVOProcTableLoad"));
    ASSERT_EQ(FORGE_RESULT_OK, load(&top_, sizeof top_));
    top_.RpcClientProcTableLoad(&table_, sizeof table_);
    top_.IntentManagerProcTableLoad(&intent_table_, sizeof intent_table_);
    manager_ = top_.Initialize();
    dlclose(library);  // It stays: callbacks may be pending when the last table goes.
    DeskTest::SetUp();
  }

  void TearDown() override {
    top_.Release(manager_);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    DeskTest::TearDown();
  }

  // A client of a task, seen from the caller's side.
  struct Client {
    TAVORpcClientProcTable* table = nullptr;
    _TAVORpcClientRef* ref = nullptr;
    int started = -1;
    std::string error;
    std::vector<std::string> texts;
    int disconnects = 0;
    int releases = 0;

    static void OnStarted(void* data, int code, const char* text, unsigned int chunk) {
      auto* self = static_cast<Client*>(data);
      self->started = code;
      self->error = text;
      if (chunk != 0) self->table->UnlockResources(self->ref, chunk);
    }
    static void OnDisconnect(void* data, int, const char*, unsigned int) {
      ++static_cast<Client*>(data)->disconnects;
    }
    static void OnMessage(void* data, const char* text, unsigned int chunk) {
      auto* self = static_cast<Client*>(data);
      self->texts.push_back(text);
      self->table->UnlockResources(self->ref, chunk);
    }
    static void OnRelease(void* data) { ++static_cast<Client*>(data)->releases; }

    bool Send(const std::string& text) { return table->SendMessage(ref, text.c_str()) == 0; }
    bool Holds(size_t count) {
      return WaitUntil([this, count] { return texts.size() >= count; });
    }
  };

  // Returns when the outcome is known.
  void Start(Client& client, const char* task) {
    client.table = &table_;
    client.ref = top_.CreateRpcClient(manager_);
    TAVORpcClientSlots slots{sizeof slots,      Client::OnStarted, Client::OnDisconnect,
                             Client::OnMessage, Client::OnRelease, &client};
    client.started = -1;
    ASSERT_EQ(FORGE_RESULT_OK, table_.StartTask(client.ref, task, TAVO_TEST_LIBS, &slots));
    ASSERT_TRUE(WaitUntil([&client] { return client.started != -1; }));
  }

  void Stop(Client& client) {
    const int before = client.releases;
    table_.Release(client.ref);
    EXPECT_TRUE(WaitUntil([&] { return client.releases == before + 1; }));
  }

  Client client_;
  TAVOProcTable top_{};
  TAVORpcClientProcTable table_{};
  TAVOIntentManagerProcTable intent_table_{};
  _TAVOManagerRef* manager_ = nullptr;
};

TEST_F(ServiceTest, TextsGoToATaskAndBack) {
  Start(client_, "service_task");
  ASSERT_EQ(0, client_.started);
  const std::vector<std::string> texts = {"hello", "", "line\nbreak\x01\"\\",
                                          "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
                                          std::string(1 << 20, 'x')};
  for (const std::string& text : texts) EXPECT_TRUE(client_.Send(text));
  ASSERT_TRUE(client_.Holds(texts.size()));
  EXPECT_EQ(texts, client_.texts);
  Stop(client_);
  EXPECT_FALSE(client_.Send("late"));
  EXPECT_EQ(2, client_.disconnects);
}

TEST_F(ServiceTest, FailedStartIsToldWithItsCause) {
  test::LogCapture log;
  Start(client_, "no-such-application");
  EXPECT_EQ(-32603, client_.started);
  EXPECT_EQ(
      "Application \"no-such-application\" could not be started: there is no such application",
      client_.error);
  EXPECT_EQ("[info] [ta-vo] on started call error: " + client_.error, log.TakeLine());
}

TEST_F(ServiceTest, OnlyMessagesWithATextAreDelivered) {
  Start(client_, "desk_task");
  EXPECT_TRUE(client_.Send("odd"));
  ASSERT_TRUE(client_.Holds(1));
  EXPECT_EQ("text", client_.texts[0]);
  Stop(client_);
}

TEST_F(ServiceTest, TaskKilledInAFrameLeavesTheCallerWell) {
  Start(client_, "desk_task");
  EXPECT_TRUE(client_.Send("half-frame"));
  EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty(); }));
  EXPECT_TRUE(client_.Send("to nobody"));
  Client next;
  Start(next, "service_task");
  EXPECT_TRUE(next.Send("text"));
  ASSERT_TRUE(next.Holds(1));
  Stop(next);
  Stop(client_);
  EXPECT_EQ(std::vector<std::string>{}, client_.texts);
}

TEST_F(ServiceTest, FloodsInBothDirectionsArriveWholeAndInOrder) {
  constexpr size_t kMessages = 20000;
  Start(client_, "service_task");
  EXPECT_TRUE(client_.Send("flood " + std::to_string(kMessages)));
  for (size_t i = 0; i < kMessages; ++i) EXPECT_TRUE(client_.Send("x" + std::to_string(i)));
  ASSERT_TRUE(client_.Holds(2 * kMessages));
  for (size_t i = 0; i < kMessages; ++i) {
    ASSERT_EQ(std::to_string(i), client_.texts[i]);
    ASSERT_EQ("x" + std::to_string(i), client_.texts[kMessages + i]);
  }
  Stop(client_);
}

TEST_F(ServiceTest, ReleasedManagerEndsItsTasks) {
  Start(client_, "service_task");
  Client starting;
  TAVORpcClientSlots slots{};
  slots.size = sizeof slots;
  starting.ref = top_.CreateRpcClient(manager_);
  table_.StartTask(starting.ref, "service_task", TAVO_TEST_LIBS, &slots);
  top_.Release(manager_);
  EXPECT_EQ(1, client_.releases);
  EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty(); }));
}

// What an application that invokes an intent gets to know.
struct Invocation {
  RuntimeManager::IntentsInvoker invoker;
  std::string answer;  // "<JSON> <code>"

  explicit Invocation(const QString& name) {
    QObject::connect(&invoker, &RuntimeManager::IntentsInvoker::replyReceived,
                     [this](const QJsonObject& reply, const RuntimeManager::Error& error) {
                       answer = QJsonDocument(reply).toJson(QJsonDocument::Compact).toStdString() +
                                " " + std::to_string(error.code());
                     });
    invoker.invoke(name, {}, {{QStringLiteral("any"), 1}});
    EXPECT_EQ("", answer);
    EXPECT_TRUE(WaitUntil([this] { return !answer.empty(); }));
  }
};

TEST_F(ServiceTest, IntentOfOneApplicationIsInvokedByAnother) {
  Start(client_, "service_task");
  EXPECT_TRUE(client_.Send("offer greet/\xC3\xA9 now"));
  ASSERT_TRUE(client_.Holds(1));
  EXPECT_EQ("offered 0", client_.texts[0]);
  const QString name = QStringLiteral("greet/\u00E9 now");
  EXPECT_EQ("{\"from\":\"task\"} 0", Invocation(name).answer);
  EXPECT_EQ("{\"from\":\"task\"} 0", Invocation(name).answer);
  EXPECT_EQ("{} " + std::to_string(ENOENT), Invocation(QStringLiteral("another")).answer);
  Stop(client_);
  // The task was killed: what it left is found dead, and removed.
  EXPECT_EQ("{} " + std::to_string(ENOENT), Invocation(name).answer);
}

class OpenUriTest : public ServiceTest {
 protected:
  void TearDown() override {
    qputenv("PATH", path_);
    for (const char* name : {"TAVO_DESK_OPEN_URI", "TAVO_DESK_RECORD", "OPENED"}) qunsetenv(name);
    ServiceTest::TearDown();
  }

  // The outcome of a request of this process.
  std::string Open(const char* uri) {
    std::string outcome;
    TAVOOpenUriSlot slot{sizeof slot,
                         [](void* data, bool success) {
                           *static_cast<std::string*>(data) += success ? "opened" : "failed";
                         },
                         [](void* data) { *static_cast<std::string*>(data) += ", released"; },
                         &outcome};
    EXPECT_EQ(FORGE_RESULT_OK, intent_table_.OpenUri(top_.GetIntentManager(manager_), uri, &slot));
    EXPECT_EQ("", outcome);
    EXPECT_TRUE(WaitUntil([&outcome] { return outcome.find("released") != std::string::npos; }));
    return outcome;
  }

  const QByteArray path_ = qgetenv("PATH");

  static QByteArray Read(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("nothing");
  }
};

TEST_F(OpenUriTest, IsRecordedRefusedOrOpenedAsTheDeskIsTold) {
  const QString record = directory_.filePath(QStringLiteral("record"));
  qputenv("TAVO_DESK_RECORD", QFile::encodeName(record));
  qputenv("TAVO_DESK_OPEN_URI", "record");
  EXPECT_EQ("opened, released", Open("https://example.org/?q=1&r=\"'$(id)"));
  EXPECT_EQ("opened, released", Open("not even a URI"));
  const auto lines = Read(record).trimmed().split('\n');
  ASSERT_EQ(2, lines.size());
  const QJsonObject entry = QJsonDocument::fromJson(lines[0]).object();
  EXPECT_EQ(QStringLiteral("OpenURI"), entry.value(QStringLiteral("intent")).toString());
  EXPECT_EQ(
      QStringLiteral("https://example.org/?q=1&r=\"'$(id)"),
      entry.value(QStringLiteral("parameters")).toObject().value(QStringLiteral("uri")).toString());
  qputenv("TAVO_DESK_RECORD", "/nowhere/record");
  EXPECT_EQ("failed, released", Open("https://example.org"));

  qputenv("TAVO_DESK_OPEN_URI", "fail");
  EXPECT_EQ("failed, released", Open("https://example.org"));

  // The desktop's opener is given the URI as it stands, and its exit code is the outcome.
  const QString opened = directory_.filePath(QStringLiteral("opened"));
  qputenv("OPENED", QFile::encodeName(opened));
  qputenv("PATH", QFile::encodeName(apps_) + ":" + path_);
  Write(QStringLiteral("xdg-open"),
        "#!/bin/sh\nprintf '%s|' \"$#\" \"$1\" >\"$OPENED\"\ncase $1 in *bad) exit 3;; esac\n");
  qputenv("TAVO_DESK_OPEN_URI", "open");
  EXPECT_EQ("opened, released", Open("https://example.org/$(id)"));
  EXPECT_EQ("1|https://example.org/$(id)|", Read(opened));
  EXPECT_EQ("failed, released", Open("https://example.org/bad"));
  QFile::remove(opened);
  for (const char* no_uri : {"--help", "-x:foo", "", ":x", "./x:y", "a b"}) {
    EXPECT_EQ("failed, released", Open(no_uri));
  }
  EXPECT_EQ("nothing", Read(opened));
  qputenv("PATH", "/nowhere");
  EXPECT_EQ("failed, released", Open("https://example.org/"));
}

TEST_F(OpenUriTest, OpenerMayLeaveABrowserBehindAndEndsWithTheService) {
  qputenv("PATH", QFile::encodeName(apps_) + ":" + path_);
  RunNatively();
  const QString pids = directory_.filePath(QStringLiteral("pids"));
  qputenv("OPENED", QFile::encodeName(pids));
  Write(QStringLiteral("xdg-open"), "#!/bin/sh\nsleep 1000 &\necho $! >\"$OPENED\"\n");
  EXPECT_EQ("opened, released", Open("x:"));
  const pid_t browser = Read(pids).trimmed().toInt();
  EXPECT_TRUE(browser > 0 && !test::IsGone(browser));
  kill(browser, SIGKILL);

  QFile::remove(pids);
  Write(QStringLiteral("xdg-open"), "#!/bin/sh\necho $$ >\"$OPENED\"\nexec sleep 1000\n");
  TAVOOpenUriSlot slot{sizeof slot, nullptr, nullptr, nullptr};
  EXPECT_EQ(FORGE_RESULT_OK, intent_table_.OpenUri(top_.GetIntentManager(manager_), "x:", &slot));
  EXPECT_TRUE(WaitUntil([&pids] { return Read(pids).trimmed().toInt() > 0; }));
  top_.Release(manager_);
  const pid_t opener = Read(pids).trimmed().toInt();
  EXPECT_TRUE(WaitUntil([opener] { return test::IsGone(opener); }));
}

TEST_F(OpenUriTest, GoesToTheApplicationThatOffersIt) {
  qputenv("TAVO_DESK_OPEN_URI", "fail");
  Start(client_, "service_task");
  EXPECT_TRUE(client_.Send("open https://example.org"));
  ASSERT_TRUE(client_.Holds(1));
  EXPECT_EQ("not opened", client_.texts[0]);
  EXPECT_TRUE(client_.Send("offer OpenURI"));
  ASSERT_TRUE(client_.Holds(2));
  EXPECT_EQ("opened, released", Open("https://example.org"));
  EXPECT_TRUE(client_.Send("open its:own"));
  ASSERT_TRUE(client_.Holds(3));
  EXPECT_EQ("opened", client_.texts[2]);
  Stop(client_);
  EXPECT_EQ("failed, released", Open("https://example.org"));
}

}  // namespace
