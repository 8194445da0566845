// libtavo.so over the desk, with tasks in processes of their own.
#include <QJsonDocument>

#include "tests/support/plugin_fixture.h"

namespace {

using cw::EncodableValue;
using test::PluginTest;
using test::Read;
using test::WaitUntil;

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
  ASSERT_EQ(1, lines.size());
  const QJsonObject entry = QJsonDocument::fromJson(lines[0]).object();
  EXPECT_EQ("OpenURI", entry["intent"].toString());
  EXPECT_EQ(rows[0].uri, entry["parameters"]["uri"].toString());
}

TEST_F(OpenUriTest, OpenerMayLeaveABrowserBehind) {
  qunsetenv("TAVO_DESK_WRAPPER");  // The host runs scripts by itself.
  WriteOpener("sleep 1000 &\necho $!", "\n");
  EXPECT_TRUE(Open("x:"));
  const pid_t browser = Read(notes_).trimmed().toInt();
  EXPECT_TRUE(browser > 0 && !test::IsGone(browser));
  kill(browser, SIGKILL);
}

TEST_F(PluginTest, RequestsAreAnsweredAndNotificationsGoBothWays) {
  const Client client = Connect();
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
  auto other = tavo::ManagerWrapper::Create(nullptr, TAVO_TEST_LIBS);
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
  manager_.reset();
  EXPECT_TRUE(next->HasConnectionFailed());
}

}  // namespace
