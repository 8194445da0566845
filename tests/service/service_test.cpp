// libtavo.so as its callers meet it: loaded by path, over the desk, with tasks in processes of
// their own. C callers use the tables, plug-ins the wrapper.
#include <dlfcn.h>

#include <optional>

#include <QJsonDocument>

#include "platform/runtime_manager/intents_invoker.h"
#include "src/tavo_capi.h"
#include "tests/support/plugin_fixture.h"
#include "tests/support/recorder.h"

namespace {

using cw::EncodableValue;
using test::Events;
using test::PluginTest;
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

  // Returns when the task runs.
  void Start() {
    client_ = top_.CreateRpcClient(manager_);
    TAVORpcClientSlots slots = told_.ClientSlots();
    ASSERT_EQ(FORGE_RESULT_OK, table_.StartTask(client_, "service_task", TAVO_TEST_LIBS, &slots));
    ASSERT_EQ(Events{"started 0 <>"}, Hear(1));
  }

  void Stop() {
    table_.Release(client_);
    EXPECT_EQ((Events{"disconnect 0 <>", "disconnect 0 <>", "release"}), Hear(3));
  }

  bool Send(const std::string& text) { return table_.SendMessage(client_, text.c_str()) == 0; }

  // What the client is told next.
  Events Hear(size_t count) {
    EXPECT_TRUE(WaitUntil([this, count] { return told_.events.size() >= count; }));
    return told_.Take();
  }

  test::Recorder told_;
  _TAVORpcClientRef* client_ = nullptr;
  TAVOProcTable top_{};
  TAVORpcClientProcTable table_{};
  TAVOIntentManagerProcTable intent_table_{};
  _TAVOManagerRef* manager_ = nullptr;
};

TEST_F(ServiceTest, TextsGoToATaskAndBack) {
  Start();
  const Events texts = {"hello", "", "line\nbreak\x01\"\\", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
                        std::string(1 << 20, 'x')};
  for (const std::string& text : texts) {
    EXPECT_TRUE(Send(text));
    EXPECT_EQ(Events{"message <" + text + ">"}, Hear(1));
  }
  Stop();
  EXPECT_FALSE(Send("late"));
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
  Start();
  EXPECT_TRUE(Send("offer greet/\xC3\xA9 now"));
  EXPECT_EQ(Events{"message <offered 0>"}, Hear(1));
  const QString name = QStringLiteral("greet/\u00E9 now");
  EXPECT_EQ("{\"from\":\"task\"} 0", Invocation(name).answer);
  EXPECT_EQ("{\"from\":\"task\"} 0", Invocation(name).answer);
  EXPECT_EQ("{} " + std::to_string(ENOENT), Invocation(QStringLiteral("another")).answer);
  Stop();
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
  Start();
  EXPECT_TRUE(Send("open https://example.org"));
  EXPECT_EQ(Events{"message <not opened>"}, Hear(1));
  EXPECT_TRUE(Send("offer OpenURI"));
  EXPECT_EQ(Events{"message <offered 0>"}, Hear(1));
  EXPECT_EQ("opened, released", Open("https://example.org"));
  EXPECT_TRUE(Send("open its:own"));
  EXPECT_EQ(Events{"message <opened>"}, Hear(1));
  Stop();
  EXPECT_EQ("failed, released", Open("https://example.org"));
}

TEST_F(PluginTest, RequestsAreAnsweredAndNotificationsGoBothWays) {
  const Client client = Connect();
  ASSERT_TRUE(client->IsConnected());
  const EncodableValue value = cw::EncodableMap{{"list", cw::EncodableList{1, 2.5, "three"}},
                                                {"bytes", std::vector<uint8_t>(100000, 7)}};
  EXPECT_EQ(value, *Request(client, "echo", value).GetResult());
  const EncodableValue records =
      cw::EncodableList(80000, cw::EncodableMap{{"id", 1}, {"name", "a record"}, {"score", 0.5}});
  EXPECT_EQ(records, *Request(client, "echo", records).GetResult());
  EXPECT_EQ(-32601, Request(client, "unknown", {}).GetError()->code);
  const auto failure = Request(client, "fail", 6);
  ASSERT_TRUE(failure.IsError());
  EXPECT_EQ(5, failure.GetError()->code);
  EXPECT_EQ("refused", failure.GetError()->message);
  EXPECT_EQ(EncodableValue(6), failure.GetError()->data);
  std::optional<EncodableValue> poked;
  client->OnNotify("poked", [&](const auto& notification) { poked = notification.params; });
  client->SendNotify("poke", "hey");
  ASSERT_TRUE(WaitUntil([&] { return poked.has_value(); }));
  EXPECT_EQ(EncodableValue("hey"), *poked);
}

TEST_F(PluginTest, ManagersEndIsTheClientsDisconnect) {
  // Two plug-ins of one process share the service: what one ends is ended for both.
  auto other = Load();
  const Client client = Connect();
  int disconnects = 0;
  client->OnDisconnected([&](const auto& error) {
    EXPECT_TRUE(error.has_value());
    ++disconnects;
  });
  other.reset();
  EXPECT_TRUE(WaitUntil([&] { return disconnects == 1; }));
  EXPECT_TRUE(client->HasConnectionFailed());
  EXPECT_EQ(-32603, Request(client, "echo", 1).GetError()->code);
  client->SendNotify("poke", 1);
  const Client next = Connect();  // The manager makes new ones.
  EXPECT_EQ(EncodableValue(2), *Request(next, "echo", 2).GetResult());
  const Client starting = manager_->CreateIpcClient("wrapper_task");
  manager_->CreateIpcClient("wrapper_task").reset();
  manager_.reset();
  EXPECT_TRUE(next->HasConnectionFailed());
}

}  // namespace
