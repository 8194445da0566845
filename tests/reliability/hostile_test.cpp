// What hostile processes send, over the desk's real sockets, to both kinds of victims: a task, and
// the starter of one. Victims are processes of their own; the attacker is this one, with raw bytes.
#include <fcntl.h>
#include <poll.h>
#include <time.h>

#include <cstring>
#include <fstream>
#include <optional>
#include <random>

#include <QJsonDocument>

#include "flrpc/message.h"
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
using Clock = std::chrono::steady_clock;

#ifdef TAVO_TEST_SANITIZED
constexpr bool kIsNative = false;
#else
constexpr bool kIsNative = sizeof TAVO_TEST_EMULATOR == 1;
#endif
// In which a good request is answered for every 64 MiB that the victim may take for what came
// before. Its processor time counts where it is comparable; the clock on the wall depends on what
// else runs.
constexpr std::chrono::seconds kAnswer{TAVO_TEST_DEADLINE_FACTOR};

// The attacker's end: raw bytes out, messages in. It reads while it writes.
class Wire {
 public:
  explicit Wire(int descriptor) : descriptor_(descriptor) {
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
  }
  explicit Wire(const QString& path) : Wire(test::OpenSocket(path, connect)) {}
  ~Wire() { close(descriptor_); }
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;

  // False when the other end went, or does not read.
  bool Write(const std::string& bytes) {
    const auto end = Clock::now() + test::kDeadline;
    for (size_t sent = 0; sent < bytes.size();) {
      const ssize_t size =
          send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (size > 0) {
        sent += static_cast<size_t>(size);
      } else if (errno != EAGAIN || !Wait(POLLIN | POLLOUT, end) || !Read()) {
        return false;
      }
    }
    return true;
  }

  // The next message for which `is_wanted` holds.
  template <typename Condition>
  std::optional<Message> Await(const Condition& is_wanted,
                               std::chrono::milliseconds deadline = test::kDeadline) {
    const auto end = Clock::now() + deadline;
    for (;;) {
      for (size_t newline; (newline = unread_.find('\n', searched_)) != std::string::npos;) {
        const auto line = QByteArray::fromStdString(unread_.substr(searched_, newline - searched_));
        searched_ = newline + 1;
        const auto text = QJsonDocument::fromJson(line).object().value(QStringLiteral("data"));
        Message message = Message::FromBase64(text.toString().toStdString());
        if (is_wanted(message)) return message;
      }
      unread_.erase(0, searched_);
      searched_ = 0;
      if (!Wait(POLLIN, end) || !Read()) return std::nullopt;
    }
  }

 private:
  bool Wait(short events, Clock::time_point end) const {
    pollfd poll_descriptor{descriptor_, events, 0};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return left > 0 && poll(&poll_descriptor, 1, static_cast<int>(left)) > 0;
  }

  // False when the other end went.
  bool Read() {
    char block[1 << 16];
    const ssize_t size = recv(descriptor_, block, sizeof block, 0);
    if (size > 0) unread_.append(block, static_cast<size_t>(size));
    return size > 0 || (size < 0 && errno == EAGAIN);
  }

  const int descriptor_;
  std::string unread_;
  size_t searched_ = 0;
};

class HostileTest : public test::DeskTest, public testing::WithParamInterface<bool> {
 protected:
  using Condition = bool (*)(const Message&);

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
      std::ifstream output(output_.toStdString());
      output.seekg(0, std::ios::end);
      output.seekg(std::max<std::streamoff>(0, output.tellg() - std::streamoff{4000}));
      std::cerr << "The victim's last words:\n" << output.rdbuf();
    }
    DeskTest::TearDown();
  }

  // A new victim, connected but for the handshake.
  void Begin() {
    Stop();
    QFile::remove(QFile::decodeName(output_ + ".pid"));
    task_ = std::make_unique<RuntimeManager::Task>(QStringLiteral("wrapper_task"));
    task_->withIpcSocket(true);
    task_->withArguments({QStringLiteral("--libs-path"), QStringLiteral(TAVO_TEST_LIBS)});
    bool started = false;
    task_->start([&started](const auto& error) { started = !error; });
    ASSERT_TRUE(WaitUntil([&started] { return started; }));
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
    if (!task_) return;
    bool stopped = false;
    task_->stop(RuntimeManager::Task::Force, [&stopped](const auto&) { stopped = true; });
    EXPECT_TRUE(WaitUntil([&stopped] { return stopped; }));
    task_.reset();
  }

  // Makes the connection over which it is attacked. A starter asks for the handshake by itself.
  void MeetVictim() {
    if (VictimIsTask()) {
      wire_ = std::make_unique<Wire>(task_->socketPath());
      return;
    }
    wire_.reset();
    ASSERT_TRUE(Ask(*control_, "start", "handover_task"));
    pollfd poll_handover{handover_, POLLIN, 0};
    ASSERT_EQ(1, poll(&poll_handover, 1, 1000 * static_cast<int>(test::kDeadline.count())));
    const int sender = accept(handover_, nullptr, nullptr);
    char byte = 0;
    iovec data{&byte, 1};
    alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = room;
    message.msg_controllen = sizeof room;
    ASSERT_EQ(1, recvmsg(sender, &message, MSG_CMSG_CLOEXEC));
    close(sender);
    int connection = -1;
    std::memcpy(&connection, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof connection);
    wire_ = std::make_unique<Wire>(connection);
  }

  // What a well-behaved peer would do; a task does it once.
  void ShakeHands() {
    if (VictimIsTask()) {
      ASSERT_TRUE(Ask(*wire_, "flrpc.connected"));
      return;
    }
    const auto request =
        wire_->Await([](const Message& message) { return message.IsRequest("flrpc.connected"); });
    ASSERT_TRUE(request);
    Say(Message::CreateResponse(request->GetRequest()->id, {}));
  }

  void Say(const Message& message) { wire_->Write(test::LineOfText(message.ToBase64())); }

  // A good request over a connection to a task; its answer, if it is a result.
  std::optional<EncodableValue> Ask(Wire& wire, const char* method,
                                    const EncodableValue& params = {}) {
    const Message request = Message::CreateRequest(Message::ID(++count_), method, params);
    wire.Write(test::LineOfText(request.ToBase64()));
    const auto answer =
        wire.Await([&](const Message& message) { return request.IsResponseForThis(message); });
    if (!answer || !answer->GetResponse()->HasResult()) return std::nullopt;
    return *answer->GetResponse()->GetResult();
  }

  // A good request, which either kind of victim answers.
  bool Answers() {
    const EncodableValue mark = ++count_;
    Say(Message::CreateNotification("poke", mark));
    return wire_
        ->Await(
            [&mark](const Message& message) {
              const auto* notification = message.GetNotification();
              return notification && notification->method == "poked" &&
                     notification->params == mark;
            },
            10 * kAnswer)
        .has_value();
  }

  // On the victim's own connection, which is good as long as it is not the attacked one.
  Wire& GetControl() { return VictimIsTask() ? *wire_ : *control_; }

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
  void ResetPeak() { std::ofstream("/proc/" + std::to_string(process_) + "/clear_refs") << 5; }

  void Attack(const test::Bomb& bomb);

  std::unique_ptr<RuntimeManager::Task> task_;
  std::unique_ptr<Wire> wire_;
  std::unique_ptr<Wire> control_;  // To a starter; a task is told over the attacked connection.
  int handover_ = -1;
  int32_t count_ = 0;
  int32_t process_ = 0;
  int64_t idle_ = 0;  // What a victim takes that has nothing to do.
  QByteArray output_;
};

void HostileTest::Attack(const test::Bomb& bomb) {
  const std::string bytes = bomb.make();
  const int64_t before = idle_;
  const auto worked = ReadProcessorTime();
  ResetPeak();
  bool lives = wire_->Write(bytes);
  if (lives && bomb.moment == test::Bomb::kEarly) ShakeHands();
  const auto begin = Clock::now();
  lives = lives && !HasFatalFailure() && Answers();
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
  if (!lives) {  // The connection may have ended; the victim must not, and serves a new one.
    EXPECT_TRUE(bomb.ends_connection);
    MeetVictim();
    if (!HasFatalFailure() && !VictimIsTask()) ShakeHands();
    ASSERT_TRUE(!HasFatalFailure() && Answers());
  }
  if (!kIsNative) return;
  EXPECT_LE(ReadProcessorTime() - worked, kAnswer * ((bomb.most_mebibytes + 63) / 64));
  const int64_t peak = ReadStatus("VmHWM");
  const int64_t kept = ReadStatus("VmRSS");  // Also by the allocator, for what comes next.
  ASSERT_TRUE(Ask(GetControl(), "trim"));
  const int64_t after = ReadStatus("VmRSS");
  EXPECT_LE(peak - before, bomb.most_mebibytes << 10) << "KiB while";
  EXPECT_LE(after - before, 5 << 10) << "KiB after";
  if (std::getenv("TAVO_TEST_SCALE")) {
    std::printf("%-50s %4ld ms, KiB: %6ld while %6ld kept %6ld after\n", bomb.name,
                long(took.count()), long(peak - before), long(kept - before), long(after - before));
  }
}

TEST_P(HostileTest, BombsHurtNobody) {
  ShakeHands();
  ASSERT_TRUE(Answers());
  idle_ = ReadStatus("VmRSS");
  for (const test::Bomb& bomb : test::GetBombs()) {
    SCOPED_TRACE(bomb.name);
    if (bomb.moment == test::Bomb::kEarly) Begin();
    if (!HasFatalFailure()) Attack(bomb);
    if (HasFatalFailure()) return;
  }
}

// Changes a few bytes, or puts in some of another.
class Mutator {
 public:
  explicit Mutator(uint32_t seed) : random_(seed) {}

  size_t Draw(size_t below) { return random_() % std::max<size_t>(below, 1); }

  std::string Mutate(std::string bytes, const std::string& other) {
    for (size_t changes = 1 + Draw(4); changes > 0; --changes) {
      const size_t at = Draw(bytes.size());
      const size_t size = 1 + Draw(8);
      switch (Draw(5)) {
        case 0:
          if (!bytes.empty()) bytes[at] = static_cast<char>(bytes[at] ^ (1 << Draw(8)));
          break;
        case 1:
          bytes.erase(at, size);
          break;
        case 2:
          bytes.insert(at, size, static_cast<char>(Draw(2) ? 0xFF : Draw(256)));
          break;
        case 3:
          bytes.insert(at, bytes.substr(Draw(bytes.size()), 16 * size));
          break;
        default:
          bytes = bytes.substr(0, at) + other.substr(Draw(other.size()));
      }
    }
    return bytes;
  }

 private:
  std::mt19937 random_;
};

// Good messages, as Base64; both kinds of victims get all of them.
std::vector<std::string> GoodTexts() {
  const Message::ID id("id7_1");
  const EncodableValue value = cw::EncodableMap{
      {"list", cw::EncodableList{1, 2.5, "three", std::vector<float>(2), EncodableValue()}},
      {"map", cw::EncodableMap{{int64_t{1} << 40, true}, {"bytes", std::vector<uint8_t>(50, 7)}}}};
  return {Message::CreateRequest(id, "echo", value).ToBase64(),
          Message::CreateRequest(id, "flrpc.connected", {}).ToBase64(),
          Message::CreateNotification("poke", value).ToBase64(),
          Message::CreateResponse(id, value).ToBase64(),
          Message::CreateError(id, -32601, "no", value).ToBase64(),
          Message::CreateError(5, "no", value).ToBase64()};
}

TEST_P(HostileTest, MutationsOfGoodMessagesHurtNobody) {
  constexpr int kBetweenAnswers = 50;
  Mutator mutator(test::GetSeed());
  const std::vector<std::string> texts = GoodTexts();
  const auto draw = [&]() -> const std::string& { return texts[mutator.Draw(texts.size())]; };
  const auto bytes_of = [](const std::string& text) {
    const test::Bytes bytes = test::BytesOf(forge::Buffer::FromBase64(text));
    return std::string(bytes.begin(), bytes.end());
  };
  ShakeHands();
  for (int i = 1; i <= 1000 * test::GetScale() && !HasFatalFailure(); ++i) {
    std::string line;
    switch (mutator.Draw(3)) {
      case 0:
        line = mutator.Mutate(test::LineOfText(draw()), test::LineOfText(draw())) + '\n';
        break;
      case 1:
        line = test::LineOfText(mutator.Mutate(draw(), draw()));
        break;
      default:
        line = test::LineOf(mutator.Mutate(bytes_of(draw()), bytes_of(draw())));
    }
    ASSERT_TRUE(wire_->Write(line)) << line;
    ASSERT_TRUE(i % kBetweenAnswers != 0 || Answers()) << "up to " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Victims, HostileTest, testing::Bool(),
                         [](const auto& victim) { return victim.param ? "Task" : "Starter"; });

}  // namespace
