// A task that answers as the tests of the wrapper want it, through the wrapper's own objects. At
// "start" it starts a task itself, whose server may ask what this one's client may.
#include <malloc.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QStringList>

#include "wrapper/manager_wrapper.h"

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  const QStringList arguments = QCoreApplication::arguments();
  const int option = arguments.indexOf(QStringLiteral("--libs-path"));
  const auto manager = tavo::ManagerWrapper::Create(
      nullptr, option < 0 ? std::string() : arguments.value(option + 1).toStdString());
  const auto server = manager ? manager->CreateRpcServer() : nullptr;
  if (!server) return 1;
  using Reply = std::unique_ptr<flrpc::IReply>;
  server->OnRequest("echo", [](const auto&, const cw::EncodableValue& params, Reply&& reply) {
    reply->SendResult(params);
  });
  server->OnRequest("fail", [](const auto&, const cw::EncodableValue& params, Reply&& reply) {
    reply->SendError(5, "refused", params);
  });
  server->OnRequest("pid", [](const auto&, const auto&, Reply&& reply) {
    reply->SendResult(static_cast<int32_t>(getpid()));
  });
  server->OnRequest(
      "trim", [](const auto&, const auto&, Reply&& reply) { reply->SendResult(malloc_trim(0)); });
  std::shared_ptr<flrpc::IClient> client;  // Of the task started last.
  server->OnRequest("start", [&](const auto&, const cw::EncodableValue& name, Reply&& reply) {
    client.reset();
    client = manager->CreateIpcClient(name.Get<std::string>());
    client->OnNotify("poke", [&client](const flrpc::Message::Notification& notification) {
      client->SendNotify("poked", notification.params);
    });
    client->Run();
    reply->SendResult({});
  });
  server->OnNotify("poke", [&server](const flrpc::Message::Notification& notification) {
    server->SendNotify("poked", notification.params);
  });
  server->Run();
  return QCoreApplication::exec();
}
