// The input is a script that drives a client and a server over a transport that drops, repeats,
// reorders, alters, forges, fails and disconnects. Callbacks go on with the script.
#include "flrpc/request_ids.h"
#include "fuzz/input.h"
#include "tests/support/rpc_link.h"

using flrpc::Message;
using forge::Buffer;
using Texts = test::RpcLink::Texts;
using Error = std::optional<Message::Error>;

constexpr int kDeepest = 4;       // Callbacks.
constexpr size_t kMaxTexts = 64;  // On their way; more are not repeated or forged.

class Script {
 public:
  explicit Script(const Buffer& input) : input_(input) {
    const auto go_on = [this](auto&) { RunStep(); };
    link_.client->OnNotify("news", go_on);
    link_.server->OnNotify("news", go_on);
    const auto answer = [this](auto& name, auto& params, auto&& reply) {
      if (name == "echo") reply->SendResult(params);
      replies_.push_back(std::move(reply));
      RunStep();
    };
    link_.server->OnRequest("echo", answer);
    link_.server->OnRequest("hold", answer);
  }

  void Run() {
    while (!IsAtEnd()) RunStep();
    const auto client = link_.client;
    if (!client) return;
    client->NotifyDisconnected({});
    assert(client->HasConnectionFailed() && !client->IsConnected());
    for (const Fate& fate : fates_) assert(fate.calls == 1 || !fate.is_sent);
  }

 private:
  struct Fate {
    Message::ID id;
    bool is_sent = false;  // Not so when the transport threw.
    int calls = 0;
  };

  // Choices; past the input's end everything is zero.
  bool IsAtEnd() const { return read_ == input_.GetSize(); }
  uint8_t Byte() { return IsAtEnd() ? 0 : input_.GetData()[read_++]; }
  size_t Below(size_t limit) { return Byte() % limit; }
  const char* Method() {
    const char* methods[] = {"echo", "hold", "unknown", "flrpc.connected", ""};
    return methods[Below(5)];
  }
  Error Lost() { return Below(8) == 1 ? Error({1, "lost"}) : Error(); }

  // What a transport that is down throws comes out of the call that had something to send.
  void RunStep() {
    if (depth_ > kDeepest || IsAtEnd()) return;
    ++depth_;
    const size_t step = Below(20);
    fuzz::Try([&] { step < 8 ? RunTransport(step) : RunSides(step); });
    --depth_;
  }

  // Even steps are the server's, odd ones the client's.
  void RunTransport(size_t step) {
    const bool is_server = step % 2 == 0;
    Texts& texts = is_server ? link_.to_server : link_.to_client;
    const size_t what = step / 2;
    if (what < 2 && is_server) link_.DeliverToServer();
    if (what < 2 && !is_server && link_.client) link_.DeliverToClient();
    if (what == 2 && !texts.empty()) Meddle(texts);
    if (what == 3 && texts.size() < kMaxTexts) texts.push_back(Forge().ToBase64());
  }

  void RunSides(size_t step) {
    const auto client = link_.client;
    const auto server = link_.server;
    if (step == 8) link_.is_down = !link_.is_down;
    if (step == 9) server->SendNotify("news", {});
    if (step == 10) server->Run();
    if (step == 11) server->OnConnected(Once());
    if (step == 12 && !replies_.empty()) AnswerHeld();
    if (!client) return;
    if (step == 13) client->SendNotify("news", {});
    if (step == 14) client->Run();
    if (step == 15) client->NotifyStarted(Lost());
    if (step == 16) Byte() % 2 ? client->OnConnected(Once()) : client->OnDisconnected(Once());
    if (step == 17) Request(*client);
    if (step == 18 && Below(8) == 1) client->NotifyDisconnected(Lost());
    if (step == 19 && Below(8) == 1) link_.client.reset();
  }

  void Request(flrpc::IClient& client) {
    const std::string method = Method();
    const auto number = int32_t(fates_.size());
    auto& ids = flrpc::details::RequestIds::Get();
    Fate& fate = fates_.emplace_back(Fate{ids.IdOf(ids.Draw() + 1)});
    client.SendRequest(method, number, [=, &fate](auto& response) {
      ++fate.calls;
      assert(fate.calls == 1 && response.id == fate.id);
      const auto* result = response.GetResult();
      if (result && method == "echo" && !was_forged_) assert(*result == number);
      RunStep();
    });
    fate.is_sent = true;
  }

  // A callback of a connection's begin or end.
  flrpc::IClient::ConnectionCallback Once() {
    return [this, calls = 0](auto&) mutable {
      ++calls;
      assert(calls == 1);
      RunStep();
    };
  }

  void AnswerHeld() {
    was_forged_ = true;  // It may be the second answer.
    const auto reply = std::move(replies_.front());
    replies_.pop_front();
    Byte() % 2 ? reply->SendResult("late") : reply->SendError(1, "late", {});
  }

  // Moves one of the texts to the front, and perhaps repeats, alters or loses it.
  void Meddle(Texts& texts) {
    std::string& text = texts.front();
    text.swap(texts[Below(texts.size())]);
    const size_t how = Below(4);
    if (how == 1 && texts.size() < kMaxTexts) texts.push_back(text);
    if (how == 2) {
      was_forged_ = true;
      Buffer bytes = Buffer::FromBase64(text);
      bytes.GetData()[Below(bytes.GetSize())] = Byte();
      text = bytes.ToBase64();
    }
    if (how == 3) texts.pop_front();
  }

  // What nobody sent, often with an identifier that somebody uses.
  Message Forge() {
    was_forged_ = true;
    const size_t which = Below(16);
    Message::ID id(std::to_string(which));
    if (which < fates_.size()) id = fates_[which].id;
    const size_t kind = Below(4);
    const char* method = Method();
    if (kind == 0) return Message::CreateResponse(id, int32_t{Byte()});
    if (kind == 1) return Message::CreateError(id, Byte(), "forged", {});
    if (kind == 2) return Message::CreateRequest(id, method, {});
    return Message::CreateNotification(Byte() % 2 ? method : "news", {});
  }

  const Buffer& input_;
  size_t read_ = 0;
  int depth_ = 0;
  bool was_forged_ = false;
  std::deque<Fate> fates_;  // Elements stay where they are.
  std::deque<std::unique_ptr<flrpc::IReply>> replies_;
  test::RpcLink link_;
};

void fuzz::Run(const Buffer& input) { Script(input).Run(); }
