#include "bench/echo_client.h"

#include <csignal>
#include <cstdint>

#include <QCoreApplication>
#include <QTimer>

#include "cw/map_access.h"
#include "wrapper/manager_wrapper.h"

namespace bench {
namespace {

using cw::EncodableValue;
using flrpc::Message;

tavo::ManagerWrapper& GetManager() {
  const QString libraries = qEnvironmentVariable(
      "TAVO_BENCH_LIBS", QCoreApplication::applicationDirPath() + QStringLiteral("/../lib"));
  static const auto manager =
      tavo::ManagerWrapper::Create(forge::IDispatcher::CreateEmpty(), libraries.toStdString());
  if (!manager) GiveUp("there is no service");
  return *manager;
}

bool HasBytes(const EncodableValue* value, size_t size) {
  const auto* bytes = value ? value->GetIf<std::vector<uint8_t>>() : nullptr;
  return bytes && bytes->size() == size;
}

void WaitForEnd(pid_t process) {
  QTimer timer;
  RunLoop([&](const auto& quit) {
    QObject::connect(&timer, &QTimer::timeout, [process, quit] {
      if (kill(process, 0) != 0) quit();
    });
    timer.start(1);
  });
}

}  // namespace

EncodableValue PayloadOf(size_t size) { return std::vector<uint8_t>(size, 0xA5); }

EchoClient::EchoClient() : client_(GetManager().CreateIpcClient("echo_task")) {
  if (!client_) GiveUp("there is no client");
  RunLoop([this](const auto& quit) {
    client_->OnConnected([quit](const auto& error) {
      if (error) GiveUp(error->message.c_str());
      quit();
    });
    client_->Run();
  });
}

EchoClient& EchoClient::Get() {
  static EchoClient client;
  return client;
}

void EchoClient::Echo(const KeepRunning& keep_running, size_t size, int in_flight) {
  const EncodableValue payload = PayloadOf(size);
  std::unique_ptr<Window> window;
  const auto on_answer = [&window, size](const Message::Response& response) {
    window->OnAnswer(HasBytes(response.GetResult(), size));
  };
  window = std::make_unique<Window>(keep_running, in_flight,
                                    [&] { client_->SendRequest("echo", payload, on_answer); });
  RunLoop([&window](const auto& quit) { window->Open(quit); });
}

void EchoClient::Fetch(size_t size) {
  RunLoop([&](const auto& quit) {
    client_->SendRequest("bytes", static_cast<int64_t>(size),
                         [quit, size](const Message::Response& response) {
                           if (!HasBytes(response.GetResult(), size)) GiveUp("a reply is wrong");
                           quit();
                         });
  });
}

Memory EchoClient::GetTaskMemory() {
  const EncodableValue result = Call("memory", {});
  const auto number = [&result](const char* name) {
    return cw::Get<int64_t>(&result, name).value_or(0);
  };
  return {number("peak"), number("private"), number("heap"), number("allocations")};
}

pid_t EchoClient::GetTaskProcess() {
  const EncodableValue result = Call("process", {});
  const auto process = cw::details::As<int64_t>(&result);
  if (!process || *process <= 0) GiveUp("the task does not tell its process");
  return static_cast<pid_t>(*process);
}

EncodableValue EchoClient::Call(const char* method, const EncodableValue& params) {
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

MoreClients::MoreClients(int count) {
  EchoClient::Get();
  for (int i = 0; i < count; ++i) {
    clients_.push_back(std::make_unique<EchoClient>());
    tasks_.push_back(clients_.back()->GetTaskProcess());
  }
}

MoreClients::~MoreClients() {
  clients_.clear();
  for (const pid_t task : tasks_) WaitForEnd(task);
}

EchoClient& MoreClients::GetLast() {
  return clients_.empty() ? EchoClient::Get() : *clients_.back();
}

}  // namespace bench
