// What hostile processes send, over the desk's real sockets, to both kinds of victims: a task, and
// the starter of one. Victims are processes of their own; the attacker is this one, with raw bytes.
#include <poll.h>
#include <time.h>

#include <cstring>
#include <fstream>
#include <optional>
#include <random>

#include <QJsonDocument>
#include <QLocalSocket>

#include "forge/buffer.h"
#include "platform/runtime_manager/task.h"
#include "tests/reliability/bombs.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/scale.h"
#include "tests/support/values.h"

namespace {

using cw::EncodableValue;
using flrpc::Message;
using test::WaitUntil;

#ifdef TAVO_TEST_SANITIZED
constexpr bool kIsNative = false;
#else
constexpr bool kIsNative = sizeof TAVO_TEST_EMULATOR == 1;
#endif
// In which a good request is answered for every 64 MiB that the victim may take for what came
// before. Its processor time counts where it is comparable; the clock on the wall depends on what
// else runs.
#ifdef __OPTIMIZE__
constexpr int kSlowness = 1;
#else
constexpr int kSlowness = 3;  // Of a walk over a tree, at least.
#endif
constexpr std::chrono::seconds kAnswer{TAVO_TEST_DEADLINE_FACTOR * kSlowness};

// The attacker's end: raw bytes out, messages in. It reads while it writes.
class Wire {
 public:
  explicit Wire(int descriptor) { EXPECT_TRUE(socket_.setSocketDescriptor(descriptor)); }
  explicit Wire(const QString& path) : Wire(test::OpenSocket(path, connect)) {}

  // False when the other end went, or does not read.
  bool Write(const std::string& bytes) {
    socket_.write(bytes.data(), static_cast<qint64>(bytes.size()));
    WaitUntil([this] { return !IsOpen() || socket_.bytesToWrite() == 0; });
    return IsOpen() && socket_.bytesToWrite() == 0;
  }

  // The next message for which `is_wanted` holds.
  template <typename Condition>
  std::optional<Message> Await(const Condition& is_wanted,
                               std::chrono::milliseconds deadline = test::kDeadline) {
    std::optional<Message> found;
    const auto has_come = [&] {
      while (!found && socket_.canReadLine()) {
        const QJsonObject line = QJsonDocument::fromJson(socket_.readLine()).object();
        const QString text = line.value(QStringLiteral("data")).toString();
        Message message = Message::FromBase64(text.toStdString());
        if (is_wanted(message)) found = std::move(message);
      }
      return found || !IsOpen();
    };
    WaitUntil(has_come, deadline);
    return found;
  }

 private:
  bool IsOpen() const { return socket_.state() == QLocalSocket::ConnectedState; }

  QLocalSocket socket_;
};

class HostileTest : public test::DeskTest, public testing::WithParamInterface<bool> {
 protected:
  static bool VictimIsTask() { return GetParam(); }

  void SetUp() override {
    DeskTest::SetUp();
    output_ = QFile::encodeName(directory_.filePath(QStringLiteral("output")));
    WrapIn("sh -c 'echo $$ >" + output_ + ".pid; exec \"$@\" >>" + output_ + " 2>&1' sh");
    const QString path = directory_.filePath(QStringLiteral("handover"));
    qputenv("TAVO_TEST_HANDOVER", QFile::encodeName(path));
    handover_ = test::ListenAt(path);
    Begin();
  }

  void TearDown() override {
    Stop();
    close(handover_);
    if (HasFailure()) {
      EXPECT_EQ(0, std::system(("tail -n 50 " + output_).constData())) << "The victim's last.";
    }
    DeskTest::TearDown();
  }

  // A new victim, connected but for the handshake: a task does that once.
  void Begin() {
    Stop();
    QFile::remove(QFile::decodeName(output_ + ".pid"));
    task_ = std::make_unique<RuntimeManager::Task>(QStringLiteral("wrapper_task"));
    task_->withIpcSocket(true);
    task_->withArguments({QStringLiteral("--libs-path"), QStringLiteral(TAVO_TEST_LIBS)});
    ASSERT_EQ("", test::Start(*task_));
    ASSERT_TRUE(WaitUntil([&] { return bool(std::ifstream(output_ + ".pid") >> process_); }));
    if (!VictimIsTask()) {
      control_ = std::make_unique<Wire>(task_->socketPath());
      ASSERT_TRUE(Ask(*control_, "flrpc.connected"));
    }
    MeetVictim();
  }

  void Stop() {
    wire_.reset();
    control_.reset();
    if (task_) test::Stop(*task_, RuntimeManager::Task::Force);
    task_.reset();
  }

  // Makes the connection over which it is attacked. A starter asks for the handshake by itself.
  void MeetVictim() {
    wire_.reset();
    if (VictimIsTask()) {
      wire_ = std::make_unique<Wire>(task_->socketPath());
      return;
    }
    ASSERT_TRUE(Ask(*control_, "start", "handover_task"));
    pollfd poll_handover{handover_, POLLIN, 0};
    ASSERT_EQ(1, poll(&poll_handover, 1, 1000 * static_cast<int>(test::kDeadline.count())));
    const int sender = accept(handover_, nullptr, nullptr);
    char byte = 0;
    iovec data{&byte, 1};
    alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{nullptr, 0, &data, 1, room, sizeof room, 0};
    ASSERT_EQ(1, recvmsg(sender, &message, MSG_CMSG_CLOEXEC));
    close(sender);
    int connection = -1;
    std::memcpy(&connection, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof connection);
    wire_ = std::make_unique<Wire>(connection);
  }

  // What a well-behaved peer would do.
  void ShakeHands() {
    if (VictimIsTask()) {
      ASSERT_TRUE(Ask(*wire_, "flrpc.connected"));
      return;
    }
    const auto request =
        wire_->Await([](const Message& message) { return message.IsRequest("flrpc.connected"); });
    ASSERT_TRUE(request);
    Say(*wire_, Message::CreateResponse(request->GetRequest()->id, {}));
  }

  static void Say(Wire& wire, const Message& message) {
    wire.Write(test::LineOfText(message.ToBase64()));
  }

  // A good request over a connection to a task; its answer, if it is a result.
  std::optional<EncodableValue> Ask(Wire& wire, const char* method,
                                    const EncodableValue& params = {}) {
    const Message request = Message::CreateRequest(Message::ID(++count_), method, params);
    Say(wire, request);
    const auto answer =
        wire.Await([&](const Message& message) { return request.IsResponseForThis(message); });
    if (!answer || !answer->GetResponse()->HasResult()) return std::nullopt;
    return *answer->GetResponse()->GetResult();
  }

  // A good request, which either kind of victim answers.
  bool Answers() {
    const EncodableValue mark = ++count_;
    Say(*wire_, Message::CreateNotification("poke", mark));
    const auto is_answer = [&mark](const Message& message) {
      const auto* notification = message.GetNotification();
      return notification && notification->method == "poked" && notification->params == mark;
    };
    return wire_->Await(is_answer, 10 * kAnswer).has_value();
  }

  int64_t ReadStatus(const char* field) {  // In KiB.
    std::ifstream status("/proc/" + std::to_string(process_) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind(field, 0) == 0) return std::stoll(line.substr(std::strlen(field) + 1));
    }
    return -1;
  }
  std::chrono::nanoseconds ReadProcessorTime() {
    clockid_t clock = 0;
    timespec time{};
    EXPECT_TRUE(clock_getcpuclockid(process_, &clock) == 0 && clock_gettime(clock, &time) == 0);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  }

  void Attack(const test::Bomb& bomb, bool is_early);

  std::unique_ptr<RuntimeManager::Task> task_;
  std::unique_ptr<Wire> wire_;
  std::unique_ptr<Wire> control_;  // To a starter; a task is told over the attacked connection.
  int handover_ = -1;
  int32_t count_ = 0;
  int32_t process_ = 0;
  int64_t idle_ = 0;  // What a victim takes that has nothing to do.
  QByteArray output_;
};

void HostileTest::Attack(const test::Bomb& bomb, bool is_early) {
  const std::string bytes = bomb.Make();
  const auto worked = ReadProcessorTime();
  std::ofstream("/proc/" + std::to_string(process_) + "/clear_refs") << 5;  // Resets the peak.
  bool lives = wire_->Write(bytes);
  if (lives && is_early) ShakeHands();
  lives = lives && !HasFatalFailure() && Answers();
  if (!lives) {  // The connection may have ended; the victim must not, and serves a new one.
    EXPECT_TRUE(bomb.ends_connection);
    MeetVictim();
    if (!HasFatalFailure() && !VictimIsTask()) ShakeHands();
    ASSERT_TRUE(!HasFatalFailure() && Answers());
  }
  if (!kIsNative) return;
  EXPECT_LE(ReadProcessorTime() - worked, kAnswer * ((bomb.most_mebibytes + 63) / 64));
  const int64_t peak = ReadStatus("VmHWM") - idle_;
  ASSERT_TRUE(Ask(control_ ? *control_ : *wire_, "trim"));
  const int64_t after = ReadStatus("VmRSS") - idle_;
  EXPECT_LE(peak, bomb.most_mebibytes << 10) << "KiB while";
  EXPECT_LE(after, 5 << 10) << "KiB after";
  if (std::getenv("TAVO_TEST_SCALE")) {
    std::printf("%-35s KiB: %6ld while %6ld after\n", bomb.name, long(peak), long(after));
  }
}

TEST_P(HostileTest, BombsHurtNobody) {
  ShakeHands();
  ASSERT_TRUE(Answers());
  idle_ = ReadStatus("VmRSS");
  for (auto* get :
       {test::GetTextBombs, test::GetValueBombs, test::GetMessageBombs, test::GetEarlyBombs}) {
    for (const test::Bomb& bomb : get()) {
      SCOPED_TRACE(bomb.name);
      const bool is_early = get == test::GetEarlyBombs;
      if (is_early) Begin();
      if (!HasFatalFailure()) Attack(bomb, is_early);
      if (HasFatalFailure()) return;
    }
  }
}

// A few bytes of a good message are flipped, lost or doubled: of its line, or of what that carries.
TEST_P(HostileTest, FlippedBytesHurtNobody) {
  std::mt19937 random(test::GetSeed());
  const auto spoil = [&random](std::string bytes) {
    for (size_t changes = 1 + random() % 4; changes > 0 && !bytes.empty(); --changes) {
      const size_t at = random() % bytes.size();
      const size_t size = 1 + random() % 16;
      if (random() % 4 == 0) {
        bytes.erase(at, size);
      } else if (random() % 3 == 0) {
        bytes.insert(at, bytes.substr(at, size));
      } else {
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << random() % 8));
      }
    }
    return bytes;
  };
  std::vector<std::string> lines;  // The messages without fault.
  for (const test::Bomb& bomb : test::GetMessageBombs()) {
    if (bomb.parts[0].count > 1) lines.push_back(bomb.parts[0].bytes);
  }
  ShakeHands();
  for (int i = 1; i <= 1000 * test::GetScale() && !HasFailure(); ++i) {
    std::string line = lines[random() % lines.size()];
    if (random() % 2 == 0) {
      line = spoil(line) + '\n';
    } else {
      const std::string text =
          line.substr(9, line.size() - 12);  // Without {"data":""} and newline.
      const test::Bytes bytes = test::BytesOf(forge::Buffer::FromBase64(text));
      line = test::LineOf(spoil({bytes.begin(), bytes.end()}));
    }
    ASSERT_TRUE(wire_->Write(line)) << line;
    ASSERT_TRUE(i % 50 != 0 || Answers()) << "up to " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Victims, HostileTest, testing::Bool(),
                         [](const auto& victim) { return victim.param ? "Task" : "Starter"; });

}  // namespace
