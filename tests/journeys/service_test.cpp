// libtavo.so over the desk, with tasks in processes of their own. C callers use the tables,
// plug-ins the wrapper.
#include <QJsonDocument>

#include "src/tavo_capi.h"
#include "tests/support/plugin_fixture.h"
#include "tests/support/recorder.h"

namespace {

using cw::EncodableValue;
using test::Events;
using test::PluginTest;
using test::Read;
using test::WaitUntil;
using ServiceTest = test::DeskTest;

TEST_F(ServiceTest, TextsGoToATaskAndBack) {
  TAVOProcTable top{};
  TAVORpcClientProcTable table{};
  ASSERT_EQ(FORGE_RESULT_OK, TAVOProcTableLoad(&top, sizeof top));
  top.RpcClientProcTableLoad(&table, sizeof table);
  _TAVOManagerRef* manager = top.Initialize();
  _TAVORpcClientRef* client = top.CreateRpcClient(manager);
  test::Recorder told;
  const auto hear = [&told](size_t count) {
    EXPECT_TRUE(WaitUntil([&told, count] { return told.events.size() >= count; }));
    return told.Take();
  };
  TAVORpcClientSlots slots = told.ClientSlots();
  ASSERT_EQ(FORGE_RESULT_OK, table.StartTask(client, "service_task", TAVO_TEST_LIBS, &slots));
  ASSERT_EQ(Events{"started 0 <>"}, hear(1));
  for (const std::string& text : {std::string("line\nbreak\x01\"\\"),
                                  std::string(1 << 20, 'x'),
                                  std::string("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"),
                                  {}}) {
    EXPECT_EQ(FORGE_RESULT_OK, table.SendMessage(client, text.c_str()));
    EXPECT_EQ(Events{"message <" + text + ">"}, hear(1));
  }
  table.Release(client);
  EXPECT_EQ((Events{"disconnect 0 <>", "disconnect 0 <>", "release"}), hear(3));
  EXPECT_NE(FORGE_RESULT_OK, table.SendMessage(client, "late"));
  top.Release(manager);
}

class OpenUriTest : public PluginTest {
 protected:
  void TearDown() override {
    qputenv("PATH", path_);
    PluginTest::TearDown();
  }

  // The desktop's opener, which notes something first.
  void WriteOpener(const QByteArray& note, const char* then) {
    qputenv("PATH", QFile::encodeName(apps_) + ":" + path_);
    Write("xdg-open", "#!/bin/sh\n" + note + " >>" + QFile::encodeName(notes_) + then);
  }
  bool Open(const std::string& uri) {
    const auto open = [&](auto&& done) { manager_->GetIntentManager()->OpenUri(uri, done); };
    return test::Await<bool>(open);
  }

  const QByteArray path_ = qgetenv("PATH");
  const QString notes_ = directory_.filePath("notes");
};

TEST_F(OpenUriTest, IsRecordedRefusedOrOpenedAsTheDeskIsTold) {
  WriteOpener("printf '%s|' \"$#\" \"$1\"", "\ncase $1 in *bad) exit 3;; esac\n");
  const QString record = directory_.filePath("record");
  qputenv("TAVO_DESK_RECORD", QFile::encodeName(record));
  const struct {
    const char* mode;
    const char* uri;
    bool is_opened;
  } rows[] = {
      {"record", "https://example.org/?q=1&r=\"'$(id)", true},
      {"record", "not even a URI", true},
      {"fail", "https://example.org", false},
      // The opener is given the URI as it stands, and its exit code is the outcome.
      {"open", "https://example.org/$(id)", true},
      {"open", "https://example.org/bad", false},
  };
  for (const auto& row : rows) {
    qputenv("TAVO_DESK_OPEN_URI", row.mode);
    EXPECT_EQ(row.is_opened, Open(row.uri)) << row.mode << " " << row.uri;
  }
  for (const char* no_uri : {"--help", "-x:foo", "", ":x", "./x:y", "a b"}) {
    EXPECT_FALSE(Open(no_uri)) << no_uri;
  }
  EXPECT_EQ("1|https://example.org/$(id)|1|https://example.org/bad|", Read(notes_));
  const auto lines = Read(record).trimmed().split('\n');
  ASSERT_EQ(2, lines.size());
  const QJsonObject entry = QJsonDocument::fromJson(lines[0]).object();
  EXPECT_EQ("OpenURI", entry["intent"].toString());
  EXPECT_EQ(rows[0].uri, entry["parameters"]["uri"].toString());
  qputenv("PATH", "/nowhere");
  EXPECT_FALSE(Open("https://example.org/"));
}

TEST_F(OpenUriTest, OpenerMayLeaveABrowserBehindAndEndsWithTheService) {
  qunsetenv("TAVO_DESK_WRAPPER");  // The host runs scripts by itself.
  WriteOpener("sleep 1000 &\necho $!", "\n");
  EXPECT_TRUE(Open("x:"));
  const pid_t browser = Read(notes_).trimmed().toInt();
  EXPECT_TRUE(browser > 0 && !test::IsGone(browser));
  kill(browser, SIGKILL);

  QFile::remove(notes_);
  WriteOpener("echo $$", "\nexec sleep 1000\n");
  manager_->GetIntentManager()->OpenUri("x:", {});
  EXPECT_TRUE(WaitUntil([this] { return Read(notes_).endsWith('\n'); }));
  manager_.reset();
  const pid_t opener = Read(notes_).trimmed().toInt();
  EXPECT_TRUE(opener > 0 && WaitUntil([opener] { return test::IsGone(opener); }));
}

TEST_F(OpenUriTest, GoesToTheApplicationThatOffersIt) {
  qputenv("TAVO_DESK_OPEN_URI", "fail");
  EXPECT_FALSE(Open("x:"));
  TAVOProcTable top{};
  TAVOProcTableLoad(&top, sizeof top);
  TAVOIntentManagerProcTable table{};
  top.IntentManagerProcTableLoad(&table, sizeof table);
  TAVORegisterIntentSlot slot{sizeof slot, nullptr, nullptr, nullptr};
  slot.callback = [](void*, TAVOReplyIntentSlot* reply) {
    const uint8_t empty_map[] = {13, 0};
    reply->reply(reply->context, empty_map, sizeof empty_map);
    reply->release(reply->context);
  };
  const auto intents = top.GetIntentManager(top.Initialize());
  EXPECT_EQ(FORGE_RESULT_OK, table.RegisterIntent(intents, "OpenURI", &slot));
  EXPECT_TRUE(Open("x:"));
}

TEST_F(PluginTest, RequestsAreAnsweredAndNotificationsGoBothWays) {
  const Client client = Connect();
  ASSERT_TRUE(client->IsConnected());
  const cw::EncodableMap map{{"id", 1}, {"name", "a record"}, {"score", 0.5}};
  const EncodableValue values[] = {cw::EncodableList{map, std::vector<uint8_t>(100000, 7)},
                                   cw::EncodableList(80000, map)};
  for (const EncodableValue& value : values) {
    EXPECT_EQ(value, *Request(client, "echo", value).GetResult());
  }
  EXPECT_EQ(-32601, Request(client, "unknown").GetError()->code);
  const auto failure = Request(client, "fail", 6);
  ASSERT_TRUE(failure.IsError());
  EXPECT_EQ(5, failure.GetError()->code);
  EXPECT_EQ("refused", failure.GetError()->message);
  EXPECT_EQ(EncodableValue(6), failure.GetError()->data);
  EncodableValue poked;
  client->OnNotify("poked", [&poked](const auto& notification) { poked = notification.params; });
  client->SendNotify("poke", "hey");
  EXPECT_TRUE(WaitUntil([&poked] { return poked == EncodableValue("hey"); }));
}

TEST_F(PluginTest, ManagersEndIsTheClientsDisconnect) {
  // Two plug-ins of one process share the service: what one ends is ended for both.
  auto other = Load();
  const Client client = Connect();
  int disconnects = 0;
  client->OnDisconnected([&disconnects](const auto& error) { disconnects += error.has_value(); });
  other.reset();
  EXPECT_TRUE(WaitUntil([&disconnects] { return disconnects == 1; }));
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
