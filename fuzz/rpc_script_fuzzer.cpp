// The input is a script that drives a client and a server over a transport that drops, repeats,
// reorders, alters, forges, fails and disconnects. Callbacks go on with the script.
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "flrpc/request_ids.h"
#include "fuzz/input.h"
#include "tests/support/rpc_link.h"

namespace {

using cw::EncodableValue;
using flrpc::Message;
using OptionalError = std::optional<Message::Error>;
using Texts = std::deque<std::string>;

constexpr int kDeepestCallback = 4;
constexpr size_t kMostTexts = 64;  // On their way; more are not repeated or forged.
constexpr const char* kMethods[] = {"echo", "hold", "unknown", "flrpc.connected", ""};

// What the process's next request will be called. The one drawn to know that is done with.
Message::ID ForeseeId() {
  auto& ids = flrpc::details::RequestIds::Get();
  const Message::ID drawn = ids.IdOf(ids.Draw());
  const std::string& text = drawn.GetText();
  const size_t counter = text.find('_') + 1;
  const uint64_t next = std::stoull(text.substr(counter)) + 1;
  return Message::ID(text.substr(0, counter) + std::to_string(next));
}

class Script {
 public:
  Script(const uint8_t* data, size_t size) : choices_(data, size) {
    const auto go_on = [this](const Message::Notification&) { RunNested(); };
    link_.client->OnNotify("news", go_on);
    link_.server->OnNotify("news", go_on);
    for (const bool holds : {false, true}) {
      link_.server->OnRequest(
          holds ? "hold" : "echo",
          [this, holds](const std::string&, const EncodableValue& params, auto&& reply) {
            if (!holds) reply->SendResult(params);
            replies_.push_back(std::move(reply));
            RunNested();
          });
    }
  }

  void Run() {
    while (!choices_.IsEmpty()) RunStep();
    if (!link_.client) return;
    link_.client->NotifyDisconnected({});
    FUZZ_CHECK(link_.client->HasConnectionFailed() && !link_.client->IsConnected());
    for (const Fate& fate : fates_) FUZZ_CHECK(fate.calls == 1 || !fate.was_accepted);
  }

 private:
  struct Fate {
    Message::ID id;
    bool was_accepted = false;  // Not so when the transport threw.
    int calls = 0;
  };

  void RunNested() {
    if (depth_ == kDeepestCallback || choices_.IsEmpty()) return;
    ++depth_;
    RunStep();
    --depth_;
  }

  // What a transport that is down throws comes out of the call that had something to send.
  void RunStep() {
    fuzz::Limits::Try([this] {
      const uint32_t step = choices_.Below(20);
      step < 8 ? RunTransport(step) : RunSides(step);
    });
  }

  void RunTransport(uint32_t step) {
    Texts& texts = step % 2 == 0 ? link_.to_server : link_.to_client;
    if (step < 4) Deliver(step % 2 == 0);
    if (step / 2 == 2 && !texts.empty()) Meddle(texts);
    if (step / 2 == 3 && texts.size() < kMostTexts) texts.push_back(Forge().ToBase64());
  }

  void RunSides(uint32_t step) {
    if (step == 8) link_.is_down = !link_.is_down;
    if (step == 9) link_.server->SendNotify("news", {});
    if (step == 10) link_.server->Run();
    if (step == 11) link_.server->OnConnected(Once());
    if (step == 12) AnswerHeld();
    const auto client = link_.client;
    if (!client) return;
    if (step == 13) client->SendNotify("news", {});
    if (step == 14) client->Run();
    if (step == 15) client->NotifyStarted(ChooseError());
    if (step == 16)
      choices_.Byte() % 2 ? client->OnConnected(Once()) : client->OnDisconnected(Once());
    if (step == 17) Request(*client);
    if (step == 18 && choices_.Below(8) == 1) client->NotifyDisconnected(ChooseError());
    if (step == 19 && choices_.Below(8) == 1) link_.client.reset();
  }

  void Request(flrpc::IClient& client) {
    const std::string method = kMethods[choices_.Below(std::size(kMethods))];
    const auto number = static_cast<int32_t>(fates_.size());
    Fate& fate = fates_.emplace_back(Fate{ForeseeId()});
    client.SendRequest(method, number, [=, &fate](const Message::Response& response) {
      FUZZ_CHECK(++fate.calls == 1);
      FUZZ_CHECK(response.id == fate.id);
      const EncodableValue* result = method == "echo" ? response.GetResult() : nullptr;
      FUZZ_CHECK(!result || was_forged_ || *result == EncodableValue(number));
      RunNested();
    });
    fate.was_accepted = true;
  }

  // A callback of a connection's begin or end.
  flrpc::IClient::ConnectionCallback Once() {
    int& calls = connection_calls_.emplace_back(0);
    return [this, &calls](const OptionalError&) {
      FUZZ_CHECK(++calls == 1);
      RunNested();
    };
  }

  OptionalError ChooseError() {
    return choices_.Below(8) == 1 ? OptionalError({1, "lost"}) : std::nullopt;
  }

  void AnswerHeld() {
    if (replies_.empty()) return;
    was_forged_ = true;  // It may be the second answer.
    const auto reply = std::move(replies_.front());
    replies_.pop_front();
    choices_.Byte() % 2 ? reply->SendResult("late") : reply->SendError(1, "late", {});
  }

  void Deliver(bool to_server) {
    if (to_server) {
      link_.DeliverToServer();
    } else if (link_.client) {
      link_.DeliverToClient();
    }
  }

  // Moves one of the texts to the front, and perhaps loses, repeats or alters it.
  void Meddle(Texts& texts) {
    std::swap(texts.front(), texts[choices_.Below(static_cast<uint32_t>(texts.size()))]);
    const uint32_t how = choices_.Below(4);
    if (how == 1 && texts.size() < kMostTexts) texts.push_back(texts.front());
    if (how == 2) {
      was_forged_ = true;
      forge::Buffer bytes = forge::Buffer::FromBase64(texts.front());
      bytes.GetData()[choices_.Below(static_cast<uint32_t>(bytes.GetSize()))] = choices_.Byte();
      texts.front() = bytes.ToBase64();
    }
    if (how == 3) texts.pop_front();
  }

  // What nobody sent, often with an identifier that somebody uses.
  Message Forge() {
    was_forged_ = true;
    const uint32_t which = choices_.Below(16);
    const auto id = which < fates_.size() ? fates_[which].id : Message::ID(which);
    const uint32_t kind = choices_.Below(4);
    const char* method = kMethods[choices_.Below(std::size(kMethods))];
    if (kind == 0) return Message::CreateResponse(id, int32_t{choices_.Byte()});
    if (kind == 1) return Message::CreateError(id, choices_.Byte(), "forged", {});
    if (kind == 2) return Message::CreateRequest(id, method, {});
    return Message::CreateNotification(choices_.Byte() % 2 ? method : "news", {});
  }

  fuzz::Choices choices_;
  int depth_ = 0;
  bool was_forged_ = false;
  std::deque<Fate> fates_;  // Elements stay where they are.
  std::deque<int> connection_calls_;
  std::deque<std::unique_ptr<flrpc::IReply>> replies_;
  test::RpcLink link_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::Limits limits;
  Script(data, size).Run();
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
