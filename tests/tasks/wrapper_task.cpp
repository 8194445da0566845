// A task that answers as the tests of the wrapper want it, through the wrapper's own objects. At
// "start" it starts a task itself, whose server may ask what this one's client may.
#include <malloc.h>
#include <unistd.h>

#include <QCoreApplication>

#include "wrapper/manager_wrapper.h"

namespace {

using cw::EncodableValue;
using Reply = std::unique_ptr<flrpc::IReply>;

// Offers an intent that is answered with an empty map, through the tables.
int Offer(const std::string& name) {
  TAVOProcTable top{};
  TAVOProcTableLoad(&top, sizeof top);
  TAVOIntentManagerProcTable intents{};
  top.IntentManagerProcTableLoad(&intents, sizeof intents);
  TAVORegisterIntentSlot slot{sizeof slot, nullptr, nullptr, nullptr};
  slot.callback = [](void*, TAVOReplyIntentSlot* reply) {
    const uint8_t empty_map[] = {13, 0};
    reply->reply(reply->context, empty_map, sizeof empty_map);
    reply->release(reply->context);
  };
  return intents.RegisterIntent(top.GetIntentManager(top.Initialize()), name.c_str(), &slot);
}

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  const bool is_told = argc == 3 && argv[1] == std::string("--libs-path");
  const auto manager = tavo::ManagerWrapper::Create(nullptr, is_told ? argv[2] : "");
  const auto server = manager ? manager->CreateRpcServer() : nullptr;
  if (!server) return 1;
  const auto answer = [&server](const char* method, auto&& get) {
    server->OnRequest(method, [get](const auto&, const EncodableValue& params, Reply&& reply) {
      reply->SendResult(get(params));
    });
  };
  answer("echo", [](const EncodableValue& params) { return params; });
  answer("pid", [](const auto&) { return getpid(); });
  answer("trim", [](const auto&) { return malloc_trim(0); });
  server->OnRequest("fail", [](const auto&, const EncodableValue& params, Reply&& reply) {
    reply->SendError(5, "refused", params);
  });
  answer("offer", [](const auto& name) { return Offer(name.template Get<std::string>()); });
  const auto poke = [](auto& end) {
    end->OnNotify("poke", [&end](const flrpc::Message::Notification& notification) {
      end->SendNotify("poked", notification.params);
    });
  };
  poke(server);
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
