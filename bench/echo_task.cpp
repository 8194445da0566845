// The other process of process_bench: sends back what it gets. What it serves is told by its first
// argument:
//   --libs-path DIR    a task on the desk, by way of the libtavo.so in the directory: "echo"
//                      returns its parameters, "bytes" as many bytes as asked for, "memory" what
//                      the process has of it, "process" its number
//   --json-lines       the socket on descriptor 3, lines with Qt's JSON and Base64
//   --lines            the socket on descriptor 3, lines as they are
//   --raw              the socket on descriptor 3, texts that end with a newline
//   --dbus ADDRESS     the message bus there; descriptor 3 is told when the name is taken
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <QCoreApplication>

#include "bench/lines.h"
#include "bench/memory.h"
#include "wrapper/manager_wrapper.h"

namespace {

using bench::Lines;
using cw::EncodableMap;
using cw::EncodableValue;
using Framing = Lines::Framing;
using Reply = std::unique_ptr<flrpc::IReply>;

constexpr int kSocket = 3;  // To process_bench.

int ServeTask(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  const auto manager =
      tavo::ManagerWrapper::Create(forge::IDispatcher::CreateEmpty(), argc > 2 ? argv[2] : "");
  const auto server = manager ? manager->CreateRpcServer() : nullptr;
  if (!server) return 1;
  server->OnRequest("echo", [](const std::string&, const EncodableValue& params, Reply&& reply) {
    reply->SendResult(params);
  });
  server->OnRequest("bytes", [](const std::string&, const EncodableValue& params, Reply&& reply) {
    reply->SendResult(std::vector<uint8_t>(static_cast<size_t>(params.Get<int64_t>())));
  });
  server->OnRequest("memory", [](const std::string&, const EncodableValue&, Reply&& reply) {
    const bench::Memory memory = bench::GetMemory();
    reply->SendResult(EncodableMap{{"peak", memory.peak},
                                   {"private", memory.private_memory},
                                   {"heap", memory.heap},
                                   {"allocations", memory.allocations}});
  });
  server->OnRequest("process", [](const std::string&, const EncodableValue&, Reply&& reply) {
    reply->SendResult(static_cast<int64_t>(getpid()));
  });
  server->Run();
  return QCoreApplication::exec();
}

int ServeLines(int argc, char** argv, Framing framing,
               QByteArray (*answer)(const QByteArray& line)) {
  const QCoreApplication application(argc, argv);
  std::unique_ptr<Lines> lines;
  lines = std::make_unique<Lines>(
      kSocket, framing, [&lines, answer](const QByteArray& line) { lines->Send(answer(line)); });
  lines->OnEnd(QCoreApplication::quit);
  return QCoreApplication::exec();
}

QByteArray AnswerJson(const QByteArray& line) {
  return bench::ToJsonLine(bench::FromJsonLine(line));
}

QByteArray AnswerSame(const QByteArray& line) { return line; }

bool WriteAll(const std::string& text) {
  size_t written = 0;
  while (written < text.size()) {
    const ssize_t size = send(kSocket, text.data() + written, text.size() - written, MSG_NOSIGNAL);
    if (size <= 0) return false;
    written += static_cast<size_t>(size);
  }
  return true;
}

int ServeRaw() {
  std::vector<char> block(1 << 20);
  std::string text;
  while (true) {
    const ssize_t size = read(kSocket, block.data(), block.size());
    if (size <= 0) return 0;
    text.append(block.data(), static_cast<size_t>(size));
    if (text.back() != '\n') continue;
    if (!WriteAll(text)) return 0;
    text.clear();
  }
}

int AnswerDBusCall(sd_bus_message* call, void*, sd_bus_error*) {
  if (!sd_bus_message_is_method_call(call, "org.example.Echo", "Echo")) return 0;
  const void* data = nullptr;
  size_t size = 0;
  sd_bus_message* reply = nullptr;
  int result = sd_bus_message_read_array(call, 'y', &data, &size);
  if (result >= 0) result = sd_bus_message_new_method_return(call, &reply);
  if (result >= 0) result = sd_bus_message_append_array(reply, 'y', data, size);
  if (result >= 0) result = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return result < 0 ? result : 1;
}

int ServeDBus(const char* address) {
  sd_bus* bus = nullptr;
  int result = sd_bus_new(&bus);
  if (result >= 0) result = sd_bus_set_address(bus, address);
  if (result >= 0) result = sd_bus_set_bus_client(bus, 1);
  if (result >= 0) result = sd_bus_start(bus);
  if (result >= 0) result = sd_bus_add_object(bus, nullptr, "/", AnswerDBusCall, nullptr);
  if (result >= 0) result = sd_bus_request_name(bus, "org.example.Echo", 0);
  if (result >= 0 && WriteAll("ready\n")) {
    while (result >= 0) {  // Until the bus is gone.
      result = sd_bus_process(bus, nullptr);
      if (result == 0) result = sd_bus_wait(bus, UINT64_MAX);
    }
    result = 0;
  }
  if (result < 0) std::fprintf(stderr, "echo_task: %s\n", std::strerror(-result));
  sd_bus_flush_close_unref(bus);
  return result < 0 ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "--libs-path") return ServeTask(argc, argv);
  if (mode == "--json-lines") return ServeLines(argc, argv, Framing::kCanReadLine, AnswerJson);
  if (mode == "--lines") return ServeLines(argc, argv, Framing::kBuffer, AnswerSame);
  if (mode == "--raw") return ServeRaw();
  if (mode == "--dbus" && argc > 2) return ServeDBus(argv[2]);
  std::fprintf(stderr, "echo_task: started by process_bench alone\n");
  return 2;
}
