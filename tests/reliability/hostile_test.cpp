// What hostile processes send, over the desk's real sockets, to both kinds of victims: a task, and
// the starter of one. Victims are processes of their own; the attacker is this one, with raw bytes.
#include <poll.h>
#include <time.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <QLocalSocket>

#include "cw/admission.h"
#include "flrpc/message.h"
#include "tests/support/desk_fixture.h"

namespace {

using cw::EncodableValue;
using flrpc::Message;
using test::WaitUntil;

#ifdef TAVO_TEST_SANITIZED
constexpr bool kIsNative = false;
#else
constexpr bool kIsNative = sizeof TAVO_TEST_EMULATOR == 1;
#endif
#ifdef __OPTIMIZE__
constexpr int kSlowness = 1;
#else
constexpr int kSlowness = 3;  // Of a walk over a tree, at least.
#endif
// The seconds in which a good request is answered for every 64 MiB that the victim may take for
// what came before. Its processor time counts where it is comparable; the clock on the wall depends
// on what else runs.
constexpr int kAnswer = TAVO_TEST_DEADLINE_FACTOR * kSlowness;

constexpr int kMiB = 1 << 20;
// A frame may miss 64 MiB of text: then it takes these, and what else it takes to read it.
constexpr int kPhantom = 80;

// ---- Bytes --------------------------------------------------------------------------------------

QByteArray Times(int count, const QByteArray& part) { return part.repeated(count); }

QByteArray Nulls(int count) { return {count, '\0'}; }

QByteArray LineOf(const QByteArray& base64) { return "{\"data\":\"" + base64 + "\"}\n"; }

QByteArray LineOf(const Message& message) {
  return LineOf(QByteArray::fromStdString(message.ToBase64()));
}

QByteArray Request(const char* method, const EncodableValue& params = {}) {
  return LineOf(Message::CreateRequest(Message::ID("id7_1"), method, params));
}

// The line of a notification; its parameters are the bytes given.
QByteArray Call(const QByteArray& params, const char* method = "poke") {
  QByteArray frame("\x0d\x03");
  for (const char* text : {"jsonrpc", "2.0", "method", method, "params"}) {
    frame += '\x07';
    frame += static_cast<char>(std::strlen(text));
    frame += text;
  }
  return LineOf(QByteArray(frame + params).toBase64());
}

// Nobody answers this one: an echo of what is not there would be the victim's own doing.
QByteArray Ignored(const QByteArray& params) { return Call(params, "ignored"); }

QByteArray FourBytes(uint32_t number) {
  return {reinterpret_cast<const char*>(&number), sizeof number};
}

// The head of a text or a container of that many elements.
QByteArray Declare(char tag, uint64_t count) {
  return QByteArray(1, tag) + '\xFF' + FourBytes(static_cast<uint32_t>(count));
}

// A map of that many values, next to the envelope's own; no two keys are equal.
QByteArray LargeMap(uint64_t values) {
  const uint64_t entries = (values - 7) / 2;
  QByteArray map = Declare(0x0d, entries);
  for (uint32_t key = 0; key < entries; ++key) map += '\x03' + FourBytes(key) + '\0';
  return map;
}

// ---- Victims ------------------------------------------------------------------------------------

std::shared_ptr<QLocalSocket> Adopt(int descriptor) {
  auto socket = std::make_shared<QLocalSocket>();
  EXPECT_TRUE(socket->setSocketDescriptor(descriptor));
  return socket;
}

// With true: the victim is a task. Otherwise it is the starter of one.
class HostileTest : public test::DeskTest, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    DeskTest::SetUp();
    output_ = QFile::encodeName(directory_.path()) + "/output";
    WrapIn("sh -c 'echo $$ >" + output_ + ".pid; exec \"$@\" >>" + output_ + " 2>&1' sh");
    const QString path = directory_.filePath(QStringLiteral("handover"));
    qputenv("TAVO_TEST_HANDOVER", QFile::encodeName(path));
    handover_ = test::ListenAt(path);
    Begin();
    ASSERT_TRUE(!HasFatalFailure() && Answers(*wire_));
    idle_ = ReadStatus("VmRSS");
  }

  void TearDown() override {
    Stop();
    close(handover_);
    if (HasFailure()) {
      EXPECT_EQ(0, std::system(("tail -n 50 " + output_).constData())) << "The victim's last.";
    }
    DeskTest::TearDown();
  }

  void Begin() {
    Stop();
    std::remove((output_ + ".pid").constData());
    task_ = std::make_unique<RuntimeManager::Task>(QStringLiteral("wrapper_task"));
    task_->withIpcSocket(true);
    task_->withArguments({QStringLiteral("--libs-path"), QStringLiteral(TAVO_TEST_LIBS)});
    ASSERT_EQ("", test::Start(*task_));
    ASSERT_TRUE(WaitUntil([&] { return bool(std::ifstream(output_ + ".pid") >> process_); }));
    proc_ = "/proc/" + std::to_string(process_) + '/';
    Connect();
  }

  void Stop() {
    wire_.reset();
    control_.reset();
    if (task_) test::Stop(*task_, RuntimeManager::Task::Force);
    task_.reset();
  }

  // Makes the connection over which it is attacked: to the task, or, for a starter, from it. There
  // is no handshake yet.
  void Connect() {
    wire_ = control_ = Adopt(test::OpenSocket(task_->socketPath(), connect));
    has_greeted_ = false;
    if (GetParam()) return;
    ASSERT_TRUE(Answers(*control_));
    control_->write(Request("start", "handover_task"));
    pollfd poll_handover{handover_, POLLIN, 0};
    ASSERT_TRUE(WaitUntil([&] { return poll(&poll_handover, 1, 0) == 1; }));
    const int sender = accept(handover_, nullptr, nullptr);
    char byte = 0;
    iovec data{&byte, 1};
    alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{nullptr, 0, &data, 1, room, sizeof room, 0};
    ASSERT_EQ(1, recvmsg(sender, &message, MSG_CMSG_CLOEXEC));
    close(sender);
    int connection = -1;
    std::memcpy(&connection, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof connection);
    wire_ = Adopt(connection);
    has_greeted_ = false;
  }

  // A starter asks for the handshake by itself.
  void Greet(QLocalSocket& socket) {
    has_greeted_ = true;
    if (&socket == control_.get()) {
      socket.write(Request("flrpc.connected"));
      return;
    }
    ASSERT_TRUE(WaitUntil([&] { return socket.canReadLine(); }));
    const Message request = Message::FromBase64(socket.readLine().mid(9).chopped(3).toStdString());
    ASSERT_TRUE(request.IsRequest("flrpc.connected"));
    socket.write(LineOf(Message::CreateResponse(request.GetRequest()->id, {})));
  }

  // A good request, and its answer.
  bool Answers(QLocalSocket& socket) {
    if (!has_greeted_) Greet(socket);
    const EncodableValue mark = ++count_;
    socket.write(LineOf(Message::CreateNotification("poke", mark)));
    const QByteArray answer = LineOf(Message::CreateNotification("poked", mark));
    bool has_come = false;
    const auto is_over = [&] {
      while (!has_come && socket.canReadLine()) has_come = socket.readLine() == answer;
      return has_come || socket.state() != QLocalSocket::ConnectedState;
    };
    return WaitUntil(is_over, std::chrono::seconds(10 * kAnswer)) && has_come;
  }

  int64_t ReadStatus(const char* field) const {  // In KiB.
    std::ifstream status(proc_ + "status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind(field, 0) == 0) return std::stoll(line.substr(line.find(':') + 1));
    }
    return -1;
  }

  double ReadProcessorTime() const {  // In seconds.
    clockid_t clock = 0;
    timespec time{};
    EXPECT_EQ(0, clock_getcpuclockid(process_, &clock));
    EXPECT_EQ(0, clock_gettime(clock, &time));
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
  }

  // `most`: the MiB that the victim may take for it, above what it has when idle. Where the desk's
  // limits end the connection, the victim lives and serves a new one.
  void Attack(const char* name, const QByteArray& bytes, int most = 64, bool is_end = false) {
    if (HasFatalFailure()) return;
    SCOPED_TRACE(name);
    const double worked = ReadProcessorTime();
    std::ofstream(proc_ + "clear_refs") << 5;  // Resets the peak.
    wire_->write(bytes);
    ASSERT_EQ(!is_end, Answers(*wire_));
    if (is_end) Connect();
    ASSERT_TRUE(!HasFatalFailure() && Answers(*wire_));
    if (!kIsNative) return;
    EXPECT_LE(ReadProcessorTime() - worked, kAnswer * ((most + 63) / 64));
    EXPECT_LE(ReadStatus("VmHWM") - idle_, most << 10) << "KiB while";
    control_->write(Request("trim"));
    ASSERT_TRUE(Answers(*control_));
    EXPECT_LE(ReadStatus("VmRSS") - idle_, 5 << 10) << "KiB after";
  }

  std::unique_ptr<RuntimeManager::Task> task_;
  std::shared_ptr<QLocalSocket> control_;  // To the task or starter;
  std::shared_ptr<QLocalSocket> wire_;     // for a task it is the same one.
  bool has_greeted_ = false;
  int handover_ = -1;
  int32_t count_ = 0;
  int32_t process_ = 0;
  std::string proc_;  // Where the system tells of it.
  int64_t idle_ = 0;  // What a victim takes that has nothing to do, in KiB.
  QByteArray output_;
};

// ---- Bombs --------------------------------------------------------------------------------------

TEST_P(HostileTest, LinesHurtNobody) {
  Attack("empty lines", Times(20000, "\n"));
  Attack("no line", Times(64 * kMiB, "x"), 64, true);
  Attack("blanks first", Times(8 * kMiB, " ") + "{}\n");
  Attack("blanks, and no JSON", "{\"a\":[]," + Times(8 * kMiB, "\t") + "x}\n");
  for (const int depth : {1000, 100000}) {
    Attack("lists", Times(depth, "[") + Times(depth, "]") + '\n');
    Attack("objects", Times(depth, "{\"a\":") + '1' + Times(depth, "}") + '\n');
  }
  Attack("values", "{\"a\":[" + Times(4 * kMiB, "1,") + "1]}\n");
  const QByteArray text = Times(1000, "x");
  Attack("key twice", Times(20000, "{\"a\":[\"" + text + "\"],\"a\":1}\n"));
  Attack("escapes", "{\"" + Times(kMiB, "\\u0001") + "\":[{}]}\n");
  Attack("long number", "{\"a\":" + Times(kMiB, "9") + "}\n");
  Attack("text without end", "{\"a\":\"" + Times(kMiB, "\\\"") + '\n');
  Attack("padding", LineOf(Times(4 * kMiB, "=")));
  Attack("zeros", LineOf(Times(4 * kMiB, "A")));
}

TEST_P(HostileTest, ValuesHurtNobody) {
  for (const int depth : {1022, 100000}) {
    Attack("deep lists", Call(Times(depth, "\x0c\x01")));
    Attack("deep keys", Call(Times(depth, "\x0d\x01")));
  }
  const QByteArray key = Times(1000, "\x0c\x01") + Nulls(2);
  Attack("equal deep keys", Call("\x0d\xc8" + Times(200, key)));
  Attack("maps as keys", Call(Times(1000, "\x0d\x02") + Nulls(2000)));
  // As many values as 64 MiB have room for, and as many as may be: 100 bytes a value.
  Attack("a large map", Ignored(LargeMap(524288)));
  Attack("the largest map", Ignored(LargeMap(cw::kMaxValues)), 400);
  const int values = cw::kMaxValues;
  Attack("too long a list", Call(Declare(0x0c, values) + Nulls(values)));
  for (const char tag : std::string("\x05\x07\x08\x09\x0a\x0b\x0c\x0d\x0e")) {
    Attack("2^32 - 1 of anything", Call(Declare(tag, 0xFFFFFFFF)));
  }
  // A failed read does not advance: each text reads the next ones.
  const QByteArray texts = Declare(0x0c, 64) + Times(64, Declare(7, kMiB));
  Attack("texts in step", Times(2, Ignored(texts)), kPhantom);
}

TEST_P(HostileTest, MessagesHurtNobody) {
  const std::string name(4 * kMiB, 'm');
  const Message::ID id("id7_1");
  const cw::EncodableList list = {1, 2.5, std::vector<float>(2)};
  const cw::EncodableMap value = {{"list", list}};
  Attack("long name", LineOf(Message::CreateNotification(name, {})));
  const QByteArray lines[] = {
      Request("echo", value),
      Request("flrpc.connected"),
      LineOf(Message::CreateNotification("poke", value)),
      LineOf(Message::CreateResponse(id, value)),
      LineOf(Message::CreateError(id, 5, "no", value)),
      LineOf(Message::CreateError(5, "no", value)),
  };
  for (const QByteArray& line : lines) Attack("a thousand", Times(1000, line));
}

TEST_P(HostileTest, EarlyFramesHurtNobody) {
  Begin();  // A task shakes hands once.
  Attack("more calls than are held", Times(2000, Call("\x01")));
  Begin();  // As much is missing as may be; each missing element is a line of the log.
  Attack("phantom elements", Ignored(Declare(0x0c, cw::kMaxMissingElements)));
  Begin();
  Attack("phantom texts", Times(2, Ignored(Declare(7, cw::kMaxMissingBytes))), kPhantom);
  Begin();  // Of few bytes, each of them a node.
  const QByteArray maps = Times(20000, "\x0d\x01" + Nulls(2));
  Attack("small maps", Times(8, Call(Declare(0x0c, 20000) + maps)));
}

// What hurt once, or could: each as a line, as the text of a frame and as its bytes.
TEST_P(HostileTest, StoredInputsHurtNobody) {
  int count = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TAVO_TEST_CORPUS)) {
    if (entry.is_directory()) continue;
    std::ifstream file(entry.path());
    const std::string input(std::istreambuf_iterator<char>(file), {});
    const QByteArray bytes = QByteArray::fromStdString(input).mid(1);  // Without the target's mode.
    const QByteArray lines = bytes + '\n' + LineOf(bytes);
    Attack(entry.path().c_str(), lines + LineOf(bytes.toBase64()), kPhantom);
    count += !bytes.isEmpty();
  }
  EXPECT_GT(count, 100);
}

INSTANTIATE_TEST_SUITE_P(Victims, HostileTest, testing::Bool(),
                         [](const auto& victim) { return victim.param ? "Task" : "Starter"; });

}  // namespace
