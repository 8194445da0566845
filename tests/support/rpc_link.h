// A client and a server in one process, joined by a transport that queues: the test delivers one
// message at a time, or drops, repeats and reorders what is on its way.
#pragma once

#include <deque>
#include <memory>
#include <stdexcept>
#include <string>

#include "flrpc/client.h"
#include "flrpc/server.h"

namespace test {

struct RpcLink {
  std::deque<std::string> to_server;  // Base64 texts, as on the wire.
  std::deque<std::string> to_client;
  bool is_down = false;  // The transport throws.
  std::shared_ptr<flrpc::IOwnedClient> client =
      flrpc::IOwnedClient::Create([this](flrpc::Message&& message) { Send(message, to_server); });
  std::shared_ptr<flrpc::IOwnedServer> server =
      flrpc::IOwnedServer::Create([this](flrpc::Message&& message) { Send(message, to_client); });

  // False when nothing was on its way.
  bool DeliverToServer() {
    if (to_server.empty()) return false;
    const std::string text = Take(to_server);
    server->ReceiveMessage(flrpc::Message::FromBase64(text));
    return true;
  }
  bool DeliverToClient() {
    if (to_client.empty()) return false;
    const std::string text = Take(to_client);
    client->ReceiveMessage(flrpc::Message::FromBase64(text));
    return true;
  }

  // Until nothing is on its way.
  void DeliverAll() {
    while (DeliverToServer() || DeliverToClient()) {
    }
  }

  void Connect() {
    server->Run();
    client->Run();
    client->NotifyStarted({});
    DeliverAll();
  }

 private:
  void Send(const flrpc::Message& message, std::deque<std::string>& texts) const {
    if (is_down) throw std::runtime_error("the transport is down");
    texts.push_back(message.ToBase64());
  }

  static std::string Take(std::deque<std::string>& texts) {
    std::string text = std::move(texts.front());
    texts.pop_front();
    return text;
  }
};

}  // namespace test
