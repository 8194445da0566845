// One request and its response within the process, over a transport that hands the Base64 text
// straight on, beside what msgpack-cxx takes to decode the small request alone. A benchmark's name
// is operation/who/circumstances.
#include <benchmark/benchmark.h>

#include <memory>
#include <msgpack.hpp>
#include <string>
#include <utility>

#include "flrpc/client.h"
#include "flrpc/server.h"
#include "kit/caller.h"
#include "kit/thread_clock.h"

namespace {

using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;

const EncodableValue kParams = EncodableMap{
    {"device", 1}, {"width", 1920}, {"height", 1080}, {"fps", 29.97}, {"name", "back"}};

Message SmallRequest() {
  return Message::CreateRequest(Message::ID("id537_1"), "camera.open", kParams);
}

// A connected pair; the server knows `methods` methods.
struct Pair {
  std::shared_ptr<flrpc::IOwnedServer> server;
  std::shared_ptr<flrpc::IOwnedClient> client;

  explicit Pair(int64_t methods) {
    server = flrpc::IOwnedServer::Create([this](Message&& message) {
      client->ReceiveMessage(Message::FromBase64(message.ToBase64()));
    });
    client = flrpc::IOwnedClient::Create([this](Message&& message) {
      server->ReceiveMessage(Message::FromBase64(message.ToBase64()));
    });
    for (int64_t i = 0; i < methods; ++i) {
      const std::string name = i == 0 ? "camera.open" : "camera.method" + std::to_string(i);
      server->OnRequest(name, [](const std::string&, const EncodableValue& params,
                                 std::unique_ptr<flrpc::IReply>&& reply) {
        benchmark::DoNotOptimize(params);
        reply->SendResult(true);
      });
    }
    server->Run();
    client->Run();
    client->NotifyStarted({});
  }

  void Call() {
    client->SendRequest("camera.open", kParams, [](const Message::Response& response) {
      benchmark::DoNotOptimize(response);
    });
  }
};

void RoundTrip(benchmark::State& state, int64_t methods, int already_answered) {
  Pair pair(methods);
  for (int i = 0; i < already_answered; ++i) pair.Call();
  for ([[maybe_unused]] auto _ : state) pair.Call();
}

// The same request as a typed call with a time limit. The answer comes when the call has returned,
// as from another process.
void CallTyped(benchmark::State& state) {
  Pair pair(10);
  std::unique_ptr<flrpc::IReply> open;
  pair.server->OnRequest("camera.open", [&open](const std::string&, const EncodableValue& params,
                                                std::unique_ptr<flrpc::IReply>&& reply) {
    benchmark::DoNotOptimize(params);
    open = std::move(reply);
  });
  using tavo::kit::Caller;
  const auto caller = Caller::Create(pair.client, std::make_shared<tavo::kit::ThreadClock>());
  for ([[maybe_unused]] auto _ : state) {
    caller->Call<bool>("camera.open", kParams,
                       [](const auto& is_open) { benchmark::DoNotOptimize(is_open); });
    std::exchange(open, nullptr)->SendResult(true);
  }
}

void ToBase64(benchmark::State& state) {
  const auto message = SmallRequest();
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(message.ToBase64());
}

void ToEncodable(benchmark::State& state) {
  const auto message = SmallRequest();
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(message.ToEncodable().Serialize().ToBase64());
  }
}

void FromBase64(benchmark::State& state) {
  const std::string text = SmallRequest().ToBase64();
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(Message::FromBase64(text));
}

void DecodeMsgpack(benchmark::State& state) {
  msgpack::sbuffer bytes;
  msgpack::packer<msgpack::sbuffer> packer(bytes);
  packer.pack_map(4);
  packer.pack("id").pack("id537_1").pack("jsonrpc").pack("2.0").pack("method").pack("camera.open");
  packer.pack("params").pack_map(5);
  packer.pack("device").pack(1).pack("fps").pack(29.97).pack("height").pack(1080);
  packer.pack("name").pack("back").pack("width").pack(1920);
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(msgpack::unpack(bytes.data(), bytes.size()));
  }
}

template <typename Function>
void Register(const std::string& name, Function function) {
  benchmark::RegisterBenchmark(name.c_str(), function);
}

}  // namespace

int main(int argc, char** argv) {
  const struct {
    const char* name;
    int64_t methods;
    int already_answered;
  } rows[] = {{"10 methods", 10, 0},
              {"100 methods", 100, 0},
              {"1000 methods", 1000, 0},
              {"after 200000 calls", 10, 200000}};
  for (const auto& row : rows) {
    const std::string name = row.name;
    Register("round trip/tavo/" + name, [row](benchmark::State& state) {
      RoundTrip(state, row.methods, row.already_answered);
    });
    Register("round trip/msgpack-cxx decoding/" + name, DecodeMsgpack);
  }
  Register("round trip/typed call/10 methods", CallTyped);
  Register("message to text/tavo/small request", ToBase64);
  Register("message to text/by way of the map/small request", ToEncodable);
  Register("text to message/tavo/small request", FromBase64);
  Register("text to message/msgpack-cxx decoding/small request", DecodeMsgpack);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
