// A channel message from the embedder to a plug-in's handler, and its answer back: through
// cw::BinaryMessenger, and through the bare table, with a handler in plain C. Both run on the
// headless embedder, which finds the handler by the channel's name and keeps a record of the open
// response; "no embedder" calls the same handlers without that, to show what the wrapper adds.
#include <benchmark/benchmark.h>

#include <array>
#include <memory>
#include <string>

#include <QCoreApplication>

#include "cw/binary_messenger.h"
#include "desk/embedder/embedder.h"

namespace {

constexpr char kChannel[] = "org.example/clock";
constexpr size_t kMessageSize = 64;

std::array<uint8_t, kMessageSize> message;
size_t answered = 0;

void CountAnswer(const uint8_t*, size_t size) { answered += size; }

// ---- The two handlers: each answers with the message ----

void AnswerBare(_FlutterOstrelEngine* engine, const char*, const uint8_t* data, size_t size,
                FlutterOstrelSendResponse send_response, _FlutterOstrelResponse* response, void*) {
  send_response(engine, response, data, size);
}

void AnswerWrapped(const uint8_t* data, size_t size, const cw::BinaryReply& reply) {
  reply(data, size);
}

// ---- On the headless embedder ----

void Deliver(benchmark::State& state, desk::Embedder* embedder) {
  answered = 0;
  for ([[maybe_unused]] auto _ : state) {
    embedder->Deliver(kChannel, message.data(), message.size(), CountAnswer);
  }
  if (answered != message.size() * state.iterations()) state.SkipWithError("an answer is missing");
}

void BareTable(benchmark::State& state) {
  desk::Embedder embedder{desk::Description()};
  const auto* context = embedder.GetContext();
  FlutterOstrelMessengerProcTable table{};
  context->MessengerProcTableLoad(&table, sizeof(table), context->engine);
  table.SetMessageHandler(context->engine, kChannel, AnswerBare, nullptr);
  Deliver(state, &embedder);
}

void Wrapper(benchmark::State& state) {
  desk::Embedder embedder{desk::Description()};
  const auto messenger = cw::BinaryMessenger::Create(embedder.GetContext());
  messenger->SetMessageHandler(kChannel, AnswerWrapped);
  Deliver(state, &embedder);
}

// ---- Without an embedder: what it was given is called at once ----

FlutterOstrelMessageCallback registered = nullptr;
void* registered_data = nullptr;

void CountResponse(_FlutterOstrelEngine*, _FlutterOstrelResponse*, const uint8_t*, size_t size) {
  answered += size;
}

void CallRegistered(benchmark::State& state, _FlutterOstrelEngine* engine) {
  for ([[maybe_unused]] auto _ : state) {
    registered(engine, kChannel, message.data(), message.size(), CountResponse, nullptr,
               registered_data);
  }
}

void BareCall(benchmark::State& state) {
  registered = AnswerBare;
  CallRegistered(state, nullptr);
}

void WrapperCall(benchmark::State& state) {
  FlutterOstrelPluginContext context{};
  context.size = sizeof(context);
  context.engine = reinterpret_cast<_FlutterOstrelEngine*>(&context);
  context.MessengerProcTableLoad = [](FlutterOstrelMessengerProcTable* table, uint32_t,
                                      _FlutterOstrelEngine*) {
    table->SetMessageHandler = [](_FlutterOstrelEngine*, const char*,
                                  FlutterOstrelMessageCallback callback, void* user_data) {
      registered = callback;
      registered_data = user_data;
    };
    return 1u;
  };
  const auto messenger = cw::BinaryMessenger::Create(&context);
  messenger->SetMessageHandler(kChannel, AnswerWrapped);
  CallRegistered(state, context.engine);
}

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  benchmark::RegisterBenchmark("channel message/tavo/64 B", Wrapper);
  benchmark::RegisterBenchmark("channel message/bare table/64 B", BareTable);
  benchmark::RegisterBenchmark("no embedder/tavo/64 B", WrapperCall);
  benchmark::RegisterBenchmark("no embedder/bare table/64 B", BareCall);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
