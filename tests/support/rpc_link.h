// A client and a server in one process, joined by a transport that queues: the test delivers one
// message at a time, or drops, repeats and reorders what is on its way.
#pragma once

#include <deque>
#include <stdexcept>

#include "flrpc/client.h"
#include "flrpc/server.h"

namespace test {

struct RpcLink {
  using Client = flrpc::IOwnedClient;
  using Server = flrpc::IOwnedServer;
  using Texts = std::deque<std::string>;  // In Base64, as on the wire.

  Texts to_server;
  Texts to_client;
  bool is_down = false;  // The transport throws.
  std::shared_ptr<Client> client =
      Client::Create([this](auto&& message) { Send(message, to_server); });
  std::shared_ptr<Server> server =
      Server::Create([this](auto&& message) { Send(message, to_client); });

  // False when nothing was on its way.
  bool DeliverToServer() { return Deliver(to_server, server); }
  bool DeliverToClient() { return Deliver(to_client, client); }

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
  void Send(const flrpc::Message& message, Texts& texts) const {
    if (is_down) throw std::runtime_error("the transport is down");
    texts.push_back(message.ToBase64());
  }

  template <typename Side>
  static bool Deliver(Texts& texts, const Side& side) {
    if (texts.empty()) return false;
    const std::string text = texts.front();
    texts.pop_front();
    side->ReceiveMessage(flrpc::Message::FromBase64(text));
    return true;
  }
};

}  // namespace test
