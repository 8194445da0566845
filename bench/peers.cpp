#include "bench/peers.h"

#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <QByteArray>
#include <QCoreApplication>

#include "bench/child.h"
#include "bench/echo_client.h"
#include "bench/lines.h"
#include "flrpc/message.h"

namespace bench {
namespace {

std::string EchoTask() {
  return (QCoreApplication::applicationDirPath() + QStringLiteral("/../bench_tasks/echo_task"))
      .toStdString();
}

// What the service's lines carry for a payload of the size.
QByteArray RequestOf(size_t size) {
  using flrpc::Message;
  const auto request = Message::CreateRequest(Message::ID("id1_1000"), "echo", PayloadOf(size));
  return QByteArray::fromBase64(QByteArray::fromStdString(request.ToBase64()));
}

// ---- Over a QLocalSocket ----

// A connection to a process that sends back the lines that it gets.
class LineEcho {
 public:
  LineEcho(const char* mode, Lines::Framing framing)
      : child_({EchoTask(), mode}),
        lines_(dup(child_.GetSocket()), framing,
               [this](const QByteArray& line) { receive_(line); }) {}

  void Send(const QByteArray& line) { lines_.Send(line); }
  void OnLine(Lines::Receive receive) { receive_ = std::move(receive); }

 private:
  const Child child_;
  Lines::Receive receive_;
  Lines lines_;
};

// ---- D-Bus ----

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

void CallDBusOneByOne(const KeepRunning& keep_running, const std::vector<uint8_t>& payload) {
  Bus::Get();
  while (keep_running()) {
    sd_bus_message* call = NewDBusCall(payload);
    sd_bus_message* reply = nullptr;
    if (sd_bus_call(Bus::Get(), call, 0, nullptr, &reply) < 0 || !HasBytes(reply, payload.size())) {
      GiveUp("a D-Bus call has failed");
    }
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
  }
}

void CallDBusSideBySide(const KeepRunning& keep_running, const std::vector<uint8_t>& payload,
                        int in_flight) {
  std::unique_ptr<Window> window;
  std::function<void(sd_bus_message*)> on_reply = [&](sd_bus_message* reply) {
    window->OnAnswer(HasBytes(reply, payload.size()));
  };
  window = std::make_unique<Window>(keep_running, in_flight, [&] {
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
}

// ---- Over a blocking socket ----

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

}  // namespace

void CallJsonLines(const KeepRunning& keep_running, size_t size, int in_flight) {
  static LineEcho echo("--json-lines", Lines::Framing::kCanReadLine);
  const QByteArray request = RequestOf(size);
  Window window(keep_running, in_flight, [&] { echo.Send(ToJsonLine(request)); });
  echo.OnLine([&](const QByteArray& line) {
    window.OnAnswer(FromJsonLine(line).size() == request.size());
  });
  RunLoop([&window](const auto& quit) { window.Open(quit); });
}

void CallLines(const KeepRunning& keep_running, size_t size, int in_flight) {
  static LineEcho echo("--lines", Lines::Framing::kBuffer);
  const QByteArray line = ToJsonLine(RequestOf(size));
  Window window(keep_running, in_flight, [&] { echo.Send(line); });
  echo.OnLine([&](const QByteArray& answer) { window.OnAnswer(answer.size() == line.size()); });
  RunLoop([&window](const auto& quit) { window.Open(quit); });
}

void CallDBus(const KeepRunning& keep_running, size_t size, int in_flight) {
  const std::vector<uint8_t> payload(size, 0xA5);
  if (in_flight == 1) return CallDBusOneByOne(keep_running, payload);
  CallDBusSideBySide(keep_running, payload, in_flight);
}

void CallRawSocket(const KeepRunning& keep_running, size_t size, int) {
  static const Child child({EchoTask(), "--raw"});
  const QByteArray line = ToJsonLine(RequestOf(size));
  std::vector<char> answer(static_cast<size_t>(line.size()));
  while (keep_running()) {
    if (!ExchangeRaw(child.GetSocket(), line, answer.data())) GiveUp("the raw socket is closed");
  }
}

}  // namespace bench
