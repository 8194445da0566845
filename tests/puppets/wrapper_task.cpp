// A task that answers as the tests of the wrapper want it, through the wrapper's own objects. At
// "start" it starts a task itself, whose server may ask what this one's client may.
#include <malloc.h>
#include <unistd.h>

#include <QCoreApplication>

#include "wrapper/manager_wrapper.h"

using cw::EncodableValue;

int main(int argc, char** argv) {
  const QCoreApplication app(argc, argv);
  const bool is_told = argc == 3 && argv[1] == std::string("--libs-path");
  const auto manager = tavo::ManagerWrapper::Create(nullptr, is_told ? argv[2] : "");
  const auto server = manager ? manager->CreateRpcServer() : nullptr;
  if (!server) return 1;
  const auto answer = [&server](const char* method, auto&& get) {
    server->OnRequest(method,
                      [get](auto&, auto& params, auto&& reply) { reply->SendResult(get(params)); });
  };
  answer("echo", [](auto& params) { return params; });
  answer("pid", [](const auto&) { return getpid(); });
  answer("trim", [](const auto&) { return malloc_trim(0); });
  server->OnRequest(
      "fail", [](auto&, auto& params, auto&& reply) { reply->SendError(5, "refused", params); });
  const auto poke = [](auto& end) {
    end->OnNotify("poke", [&end](auto& note) { end->SendNotify("poked", note.params); });
  };
  poke(server);
  answer("leave", [](const auto&) -> EncodableValue { _exit(7); });
  const auto talk = [&server] {
    for (int i = 1; i <= 3; ++i) server->SendNotify(i == 2 ? "tock" : "tick", i);
  };
  answer("talk", [talk](auto& params) { return talk(), params; });
  std::unique_ptr<flrpc::IReply> unanswered;
  server->OnRequest("wait", [&](auto&, auto&, auto&& reply) { unanswered = std::move(reply); });
  if (getenv("TAVO_TEST_TALKS")) server->OnConnected([talk](const auto&) { talk(); });
  std::shared_ptr<flrpc::IClient> client;  // Of the task started last.
  answer("start", [&](const EncodableValue& name) {
    client.reset();
    client = manager->CreateIpcClient(name.Get<std::string>());
    poke(client);
    client->Run();
    return EncodableValue();
  });
  server->Run();
  return QCoreApplication::exec();
}
