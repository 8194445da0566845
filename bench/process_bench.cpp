// A request and its response between two processes, through everything: client wrapper, service,
// desk, socket, task, server wrapper, and back. Beside it, between two processes as well: the same
// JSON lines over a bare QLocalSocket with Qt's JSON and Base64; the same bytes over a raw Unix
// socket; the payload in a D-Bus call through the daemon. A benchmark's name is
// operation/who/payload each way; a time is that of one call.
//
// "process_bench --memory" tells instead what memory the two processes need for one large reply.
#include <benchmark/benchmark.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cassert>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include "bench/json_lines.h"
#include "bench/memory.h"
#include "wrapper/manager_wrapper.h"

namespace {

using cw::EncodableValue;
using flrpc::Message;

constexpr int kDeadlineMs = 60'000;

// "process_bench: TEXT", and the end: without its peers nothing can be measured.
[[noreturn]] void GiveUp(const char* text) {
  std::fprintf(stderr, "process_bench: %s\n", text);
  std::exit(1);
}

// Runs the event loop until `quit` was called, which `begin` is given.
void RunLoop(const std::function<void(const std::function<void()>& quit)>& begin) {
  QEventLoop loop;
  QTimer::singleShot(kDeadlineMs, &loop, [] { GiveUp("a peer does not answer"); });
  QTimer::singleShot(0, &loop, [&] { begin([&loop] { loop.quit(); }); });
  loop.exec();
}

// Keeps `size` calls in flight until the benchmark has timed as many answers as it wants. The first
// answers are not timed: those of a window that is being filled.
class Window {
 public:
  Window(benchmark::State& state, int size, std::function<void()> send)
      : state_(state), untimed_(size - 1), send_(std::move(send)) {}

  // `end` is called when no call is in flight any more.
  void Open(std::function<void()> end) {
    end_ = std::move(end);
    for (const int size = untimed_ + 1; in_flight_ < size;) Send();
  }

  void OnAnswer(bool is_right) {
    if (!is_right) GiveUp("an answer is wrong");
    --in_flight_;
    if (untimed_ > 0) {
      --untimed_;
      return Send();
    }
    running_ = running_ && state_.KeepRunning();
    if (running_) return Send();
    if (in_flight_ == 0) end_();
  }

 private:
  void Send() {
    ++in_flight_;
    send_();
  }

  benchmark::State& state_;
  int untimed_;
  const std::function<void()> send_;
  std::function<void()> end_;
  int in_flight_ = 0;
  bool running_ = true;
};

// ---- Through everything ----

class Service {
 public:
  static Service& Get() {
    static Service service;
    return service;
  }

  flrpc::IClient& GetClient() { return *client_; }

  // The result, once it is there.
  EncodableValue Call(const char* method, const EncodableValue& params) {
    EncodableValue result;
    RunLoop([&](const auto& quit) {
      client_->SendRequest(method, params, [&result, quit](const Message::Response& response) {
        if (!response.GetResult()) GiveUp("a request has failed");
        result = *response.GetResult();
        quit();
      });
    });
    return result;
  }

 private:
  Service()
      : manager_(tavo::ManagerWrapper::Create(
            forge::IDispatcher::CreateEmpty(),
            QCoreApplication::applicationDirPath().toStdString() + "/../lib")),
        client_(manager_ ? manager_->CreateIpcClient("echo_task") : nullptr) {
    if (!client_) GiveUp("there is no client");
    RunLoop([this](const auto& quit) {
      client_->OnConnected([quit](const auto& error) {
        if (error) GiveUp(error->message.c_str());
        quit();
      });
      client_->Run();
    });
  }

  const std::unique_ptr<tavo::ManagerWrapper> manager_;
  const std::shared_ptr<flrpc::IClient> client_;
};

EncodableValue PayloadOf(size_t size) { return std::vector<uint8_t>(size, 0xA5); }

void CallService(benchmark::State& state, size_t size, int in_flight) {
  auto& client = Service::Get().GetClient();
  const EncodableValue payload = PayloadOf(size);
  std::unique_ptr<Window> window;
  const auto on_answer = [&window, size](const Message::Response& response) {
    const auto* result = response.GetResult();
    const auto* bytes = result ? result->GetIf<std::vector<uint8_t>>() : nullptr;
    window->OnAnswer(bytes && bytes->size() == size);
  };
  window = std::make_unique<Window>(state, in_flight,
                                    [&] { client.SendRequest("echo", payload, on_answer); });
  RunLoop([&window](const auto& quit) { window->Open(quit); });
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// ---- The peers ----

// A process that is ended with this one, at the latest. Its descriptor 3 is a socket to us.
class Child {
 public:
  explicit Child(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) GiveUp("no socket pair");
    process_ = fork();
    if (process_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      dup2(sockets[1], 3);
      execvp(arguments[0], arguments.data());
      _exit(127);
    }
    close(sockets[1]);
    socket_ = sockets[0];
  }
  ~Child() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
    close(socket_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  int GetSocket() const { return socket_; }

  // Without its newline; empty when the process has ended.
  std::string ReadLine() const {
    std::string line;
    for (char c = 0; read(socket_, &c, 1) == 1 && c != '\n';) line += c;
    return line;
  }

 private:
  pid_t process_ = -1;
  int socket_ = -1;
};

std::string EchoTask() {
  return (QCoreApplication::applicationDirPath() + QStringLiteral("/../bench_tasks/echo_task"))
      .toStdString();
}

// What the service's lines carry for a payload of the size.
QByteArray RequestOf(size_t size) {
  const auto request = Message::CreateRequest(Message::ID("id1_1000"), "echo", PayloadOf(size));
  return QByteArray::fromBase64(QByteArray::fromStdString(request.ToBase64()));
}

void CallLocalSocket(benchmark::State& state, size_t size, int in_flight) {
  static const Child child({EchoTask(), "--json-lines"});
  static std::function<void(const QByteArray&)> receive;
  static bench::JsonLines lines(dup(child.GetSocket()),
                                [](const QByteArray& payload) { receive(payload); });
  const QByteArray request = RequestOf(size);
  Window window(state, in_flight, [&request] { lines.Send(request); });
  receive = [&](const QByteArray& payload) { window.OnAnswer(payload.size() == request.size()); };
  RunLoop([&window](const auto& quit) { window.Open(quit); });
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

bool ExchangeRaw(int socket, const QByteArray& line, char* answer) {
  int moved = 0;
  while (moved < line.size()) {
    const ssize_t size = send(socket, line.constData() + moved,
                              static_cast<size_t>(line.size() - moved), MSG_NOSIGNAL);
    if (size <= 0) return false;
    moved += static_cast<int>(size);
  }
  for (moved = 0; moved < line.size();) {
    const ssize_t size = read(socket, answer + moved, static_cast<size_t>(line.size() - moved));
    if (size <= 0) return false;
    moved += static_cast<int>(size);
  }
  return true;
}

void CallRawSocket(benchmark::State& state, size_t size) {
  static const Child child({EchoTask(), "--raw"});
  const QByteArray line = bench::JsonLines::ToLine(RequestOf(size));
  std::vector<char> answer(static_cast<size_t>(line.size()));
  for ([[maybe_unused]] auto _ : state) {
    if (!ExchangeRaw(child.GetSocket(), line, answer.data())) GiveUp("the raw socket is closed");
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// A message bus of our own with an echo service on it. Its address leaves no file.
class Bus {
 public:
  static sd_bus* Get() {
    static const Bus bus;
    return bus.bus_;
  }

 private:
  Bus()
      : daemon_({"dbus-daemon", "--nofork", "--nopidfile", "--config-file=" TAVO_BENCH_BUS_CONFIG,
                 "--address=unix:abstract=tavo-bench-" + std::to_string(getpid()),
                 "--print-address=3"}),
        address_(daemon_.ReadLine()),
        service_({EchoTask(), "--dbus", address_}) {
    if (service_.ReadLine() != "ready") GiveUp("no D-Bus service can be started");
    const bool connected = sd_bus_new(&bus_) >= 0 &&
                           sd_bus_set_address(bus_, address_.c_str()) >= 0 &&
                           sd_bus_set_bus_client(bus_, 1) >= 0 && sd_bus_start(bus_) >= 0;
    if (!connected) GiveUp("no connection to the message bus");
  }
  ~Bus() { sd_bus_flush_close_unref(bus_); }

  const Child daemon_;
  const std::string address_;
  const Child service_;
  sd_bus* bus_ = nullptr;
};

sd_bus_message* NewDBusCall(const std::vector<uint8_t>& payload) {
  sd_bus_message* call = nullptr;
  if (sd_bus_message_new_method_call(Bus::Get(), &call, "org.example.Echo", "/", "org.example.Echo",
                                     "Echo") < 0 ||
      sd_bus_message_append_array(call, 'y', payload.data(), payload.size()) < 0) {
    GiveUp("no D-Bus message can be made");
  }
  return call;
}

bool HasBytes(sd_bus_message* reply, size_t size) {
  const void* data = nullptr;
  size_t actual = 0;
  return sd_bus_message_read_array(reply, 'y', &data, &actual) >= 0 && actual == size;
}

void CallDBus(benchmark::State& state, size_t size) {
  const std::vector<uint8_t> payload(size, 0xA5);
  Bus::Get();
  for ([[maybe_unused]] auto _ : state) {
    sd_bus_message* call = NewDBusCall(payload);
    sd_bus_message* reply = nullptr;
    if (sd_bus_call(Bus::Get(), call, 0, nullptr, &reply) < 0 || !HasBytes(reply, size)) {
      GiveUp("a D-Bus call has failed");
    }
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void CallDBusSideBySide(benchmark::State& state, size_t size, int in_flight) {
  const std::vector<uint8_t> payload(size, 0xA5);
  std::unique_ptr<Window> window;
  std::function<void(sd_bus_message*)> on_reply = [&](sd_bus_message* reply) {
    window->OnAnswer(HasBytes(reply, size));
  };
  window = std::make_unique<Window>(state, in_flight, [&] {
    sd_bus_message* call = NewDBusCall(payload);
    const auto forward = [](sd_bus_message* reply, void* data, sd_bus_error*) {
      (*static_cast<std::function<void(sd_bus_message*)>*>(data))(reply);
      return 1;
    };
    sd_bus_call_async(Bus::Get(), nullptr, call, forward, &on_reply, 0);
    sd_bus_message_unref(call);
  });
  bool ended = false;
  window->Open([&ended] { ended = true; });
  while (!ended) {
    const int result = sd_bus_process(Bus::Get(), nullptr);
    if (result < 0) GiveUp("the message bus is gone");
    if (result == 0) sd_bus_wait(Bus::Get(), UINT64_MAX);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// ---- Memory ----

void PrintPeak(const char* who, int64_t before, int64_t peak, int64_t payload) {
  constexpr double kMiB = 1 << 20;
  std::printf(
      "%-6s  %6.1f MiB before  %6.1f MiB at its peak  %5.2f payloads  %5.2f more than before\n",
      who, static_cast<double>(before) / kMiB, static_cast<double>(peak) / kMiB,
      static_cast<double>(peak) / static_cast<double>(payload),
      static_cast<double>(peak - before) / static_cast<double>(payload));
}

void PrintMemory() {
  static constexpr int32_t kPayload = 16 << 20;
  Service& service = Service::Get();
  const int64_t task_before = service.Call("peak", {}).Get<int64_t>();
  const int64_t client_before = bench::GetPeakMemory();
  RunLoop([&service](const auto& quit) {
    service.GetClient().SendRequest("bytes", kPayload, [quit](const Message::Response& response) {
      const auto* result = response.GetResult();
      const auto* bytes = result ? result->GetIf<std::vector<uint8_t>>() : nullptr;
      if (!bytes || bytes->size() != kPayload) GiveUp("the reply is not what was asked for");
      quit();
    });
  });
  const int64_t client_peak = bench::GetPeakMemory();
  const int64_t task_peak = service.Call("peak", {}).Get<int64_t>();
  std::printf("Memory for one reply with a byte list of 16 MiB\n");
  PrintPeak("client", client_before, client_peak, kPayload);
  PrintPeak("task", task_before, task_peak, kPayload);
}

// ---- All of them ----

template <typename Function>
void Register(const std::string& name, Function function) {
  benchmark::RegisterBenchmark(name.c_str(), function)->UseRealTime();
}

void RegisterAll() {
  const struct {
    const char* name;
    size_t size;
  } payloads[] = {{"64 B", 64}, {"4 KiB", 4 << 10}, {"256 KiB", 256 << 10}};
  for (const int in_flight : {1, 64}) {
    const std::string operation = std::to_string(in_flight) + " in flight/";
    for (const auto& payload : payloads) {
      const std::string what = std::string("/") + payload.name;
      const size_t size = payload.size;
      Register(operation + "tavo" + what,
               [=](auto& state) { CallService(state, size, in_flight); });
      Register(operation + "QLocalSocket, Qt JSON" + what,
               [=](auto& state) { CallLocalSocket(state, size, in_flight); });
      if (in_flight == 1) {
        Register(operation + "sd-bus" + what, [=](auto& state) { CallDBus(state, size); });
        Register(operation + "raw socket" + what, [=](auto& state) { CallRawSocket(state, size); });
      } else {
        Register(operation + "sd-bus" + what,
                 [=](auto& state) { CallDBusSideBySide(state, size, in_flight); });
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  qputenv(
      "TAVO_DESK_PATH",
      (QCoreApplication::applicationDirPath() + QStringLiteral("/../bench_tasks")).toLocal8Bit());
  if (argc == 2 && std::string(argv[1]) == "--memory") {
    PrintMemory();
    return 0;
  }
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
