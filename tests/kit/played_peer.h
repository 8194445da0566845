// A client, and the other end of its connection.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "flrpc/client.h"

namespace test {

using flrpc::Message;

// A client whose peer is played by the test.
class PlayedPeer {
 public:
  std::shared_ptr<flrpc::IOwnedClient> client =
      flrpc::IOwnedClient::Create([this](Message&& message) { Take(message); });
  std::deque<Message> sent;  // Without the handshake.
  std::function<void(const Message&)> on_send;
  bool is_down = false;  // The transport throws.

  void Connect() {
    client->Run();
    client->NotifyStarted({});
  }
  void Answer(const Message& request, cw::EncodableValue result) {
    client->ReceiveMessage(Message::CreateResponse(request.GetRequest()->id, std::move(result)));
  }
  void Refuse(const Message& request, int code, const char* text) {
    client->ReceiveMessage(Message::CreateError(request.GetRequest()->id, code, text, {}));
  }
  void Notify(const char* method, cw::EncodableValue params) {
    client->ReceiveMessage(Message::CreateNotification(method, std::move(params)));
  }
  Message Pop() {
    if (sent.empty()) throw std::logic_error("nothing was sent");
    Message message = std::move(sent.front());
    sent.pop_front();
    return message;
  }
  void AnswerFeatures(bool is_old = false) {
    const Message features = Pop();
    EXPECT_TRUE(features.IsRequest("$/features"));
    if (is_old) return Refuse(features, -32601, "Unknown method '$/features()'");
    Answer(features,
           cw::EncodableMap{{"cancel", true}, {"methods", cw::EncodableList{1, "typed"}}});
  }

 private:
  void Take(const Message& message) {
    if (is_down) throw std::runtime_error("the transport is down");
    if (message.IsRequest("flrpc.connected")) return Answer(message, {});
    sent.push_back(message);
    if (on_send) on_send(message);
  }
};

}  // namespace test
