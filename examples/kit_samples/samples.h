// What the samples share: the types of a camera's interface, and a client and a server in one
// process.
//
// Threads: one.
#pragma once

#include <flrpc/client.h>
#include <flrpc/server.h>
#include <kit/caller.h>
#include <kit/manual_clock.h>
#include <kit/responder.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace samples {

namespace kit = tavo::kit;

enum class Lens { kFront, kBack };
TAVO_DESCRIBE_ENUM(Lens, kFront, kBack)

struct Area {
  Lens lens = Lens::kBack;
  std::optional<int32_t> zoom;  // Left out when it is empty.
};
TAVO_DESCRIBE(Area, lens, zoom)

struct Size {
  int32_t width = 0;
  int32_t height = 0;
};
TAVO_DESCRIBE(Size, width, height)

// What the samples say, one word after the other.
class Transcript {
 public:
  void Say(const std::string& word) { text_ += text_.empty() ? word : " " + word; }
  std::string Take() { return std::exchange(text_, {}); }

 private:
  std::string text_;
};

// Each hands its messages straight to the other, which one thread may do.
struct Link {
  std::shared_ptr<flrpc::IOwnedServer> server = flrpc::IOwnedServer::Create(
      [this](flrpc::Message&& message) { client->ReceiveMessage(std::move(message)); });
  std::shared_ptr<flrpc::IOwnedClient> client = flrpc::IOwnedClient::Create(
      [this](flrpc::Message&& message) { server->ReceiveMessage(std::move(message)); });
  std::shared_ptr<kit::ManualClock> clock = std::make_shared<kit::ManualClock>();
  std::shared_ptr<kit::Caller> caller = kit::Caller::Create(client, clock);
  std::shared_ptr<kit::Responder> responder = kit::Responder::Create(server);
  Transcript transcript;

  void Say(const std::string& word) { transcript.Say(word); }
  void Say(const Size& size) {
    Say(std::to_string(size.width) + "x" + std::to_string(size.height));
  }

  void Connect() {
    responder->Run();
    caller->Run();
    client->NotifyStarted({});
  }
};

// Runs the samples of one file; returns whether all said what they should.
bool RunCallSamples();
bool RunServerSamples();
bool RunAwaitSamples();  // In C++20.

// Returns whether the sample said that, and prints it if not.
bool Check(const char* sample, const std::string& expected, const std::string& said);

}  // namespace samples
