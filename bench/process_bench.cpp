// A request and its response between two processes, through everything, beside what else there is
// for that (bench/peers.h). A benchmark's name is operation/who/what; a time is that of one call.
//
//   --memory            tells instead what memory the two processes need for one large reply, and
//                       how often they allocate for a small one
//   --growth MESSAGES   measures instead what more messages, up to so many, more calls in flight
//                       and more clients cost and need
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include <QCoreApplication>

#include "bench/child.h"
#include "bench/echo_client.h"
#include "bench/memory.h"
#include "bench/peers.h"
#include "bench/window.h"

namespace {

using bench::EchoClient;
using bench::KeepRunning;
using bench::Memory;

constexpr size_t kSmall = 64;
constexpr size_t kLarge = 256 << 10;  // From here on the state of the heap matters.
constexpr size_t kLargest = 16 << 20;

constexpr char kFirstCalls[] = "--first-calls";

struct Way {
  const char* who;
  void (*call)(const KeepRunning&, size_t size, int in_flight);
};

void CallService(const KeepRunning& keep_running, size_t size, int in_flight) {
  EchoClient::Get().Echo(keep_running, size, in_flight);
}

constexpr Way kWays[] = {{"tavo", CallService},
                         {"QLocalSocket, Qt JSON", bench::CallJsonLines},
                         {"QLocalSocket", bench::CallLines},
                         {"sd-bus", bench::CallDBus},
                         {"raw socket", bench::CallRawSocket}};

constexpr struct {
  const char* name;
  size_t size;
} kPayloads[] = {{"64 B", kSmall},
                 {"4 KiB", 4 << 10},
                 {"256 KiB", kLarge},
                 {"1 MiB", 1 << 20},
                 {"16 MiB", kLargest}};

KeepRunning TimedBy(benchmark::State& state) {
  return [&state] { return state.KeepRunning(); };
}

template <typename Function>
benchmark::internal::Benchmark* Register(const std::string& name, Function function) {
  return benchmark::RegisterBenchmark(name.c_str(), function)->UseRealTime();
}

// ---- Payloads ----

// Large calls are warm: the largest has passed before.
void CallWarm(benchmark::State& state, const Way& way, size_t size, int in_flight) {
  static std::set<std::string> warm;
  if (size >= kLarge && warm.insert(way.who).second) way.call(bench::Times(1), kLargest, 1);
  way.call(TimedBy(state), size, in_flight);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// So many make the same traffic of each size.
int64_t FirstCallsOf(size_t size) { return static_cast<int64_t>(kLargest / size); }

// Prints the time of the first calls of the size, in seconds a call, to descriptor 3. The
// connection is there: a small call has passed.
int PrintFirstCalls(const Way& way, size_t size) {
  using Clock = std::chrono::steady_clock;
  const auto calls = FirstCallsOf(size);
  way.call(bench::Times(1), kSmall, 1);
  std::optional<Clock::time_point> begin;
  Clock::time_point end;
  const auto count = [&, times = bench::Times(calls)] {
    end = Clock::now();
    if (!begin) begin = end;
    return times();
  };
  way.call(count, size, 1);
  const std::chrono::duration<double> time = end - *begin;
  dprintf(3, "%.9f\n", time.count() / static_cast<double>(calls));
  return 0;
}

// The first calls between two processes that are started for them.
void CallCold(benchmark::State& state, const Way& way, size_t size) {
  for ([[maybe_unused]] auto _ : state) {
    const bench::Child child(
        {"/proc/self/exe", kFirstCalls, std::to_string(&way - kWays), std::to_string(size)});
    const double seconds = std::atof(child.ReadLine().c_str());
    if (seconds <= 0) bench::GiveUp("a fresh process tells no time");
    state.SetIterationTime(seconds);
  }
}

void RegisterWarm(int in_flight, size_t max_size) {
  for (const auto& [name, size] : kPayloads) {
    for (const Way& way : kWays) {
      if (size > max_size || (in_flight > 1 && way.call == bench::CallRawSocket)) continue;
      Register(
          std::to_string(in_flight) + " in flight/" + way.who + "/" + name,
          [&way, size = size, in_flight](auto& state) { CallWarm(state, way, size, in_flight); });
    }
  }
}

void RegisterCold() {
  for (const auto& [name, size] : kPayloads) {
    if (size < kLarge) continue;
    const int64_t calls = FirstCallsOf(size);
    const std::string operation =
        "cold, first " + (calls == 1 ? "call" : std::to_string(calls) + " calls");
    for (const Way& way : kWays) {
      const std::string row = operation + "/" + way.who + "/" + name;
      const auto call = [&way, size = size](auto& state) { CallCold(state, way, size); };
      benchmark::RegisterBenchmark(row.c_str(), call)->UseManualTime()->Iterations(1);
    }
  }
}

// ---- Growth ----

constexpr int kRepetitions = 5;

// The memory of both processes as it is after the calls.
void AddMemory(benchmark::State& state, EchoClient& client) {
  const auto add = [&state](const char* who, const Memory& memory) {
    state.counters[std::string(who) + " private"] = static_cast<double>(memory.private_memory);
    state.counters[std::string(who) + " heap"] = static_cast<double>(memory.heap);
  };
  add("client", bench::GetMemory());
  add("task", client.GetTaskMemory());
}

// Calls by the last one of so many clients, each with a task of its own; the others are idle.
void CallByOneOf(benchmark::State& state, int clients) {
  bench::MoreClients more(clients - 1);
  more.GetLast().Echo(bench::Times(500), kSmall, 1);
  more.GetLast().Echo(TimedBy(state), kSmall, 1);
  AddMemory(state, more.GetLast());
}

void CallSoMany(benchmark::State& state, int in_flight) {
  EchoClient::Get().Echo(TimedBy(state), kSmall, in_flight);
  AddMemory(state, EchoClient::Get());
}

void RegisterClients() {
  for (const int clients : {1, 10, 50, 100, 200}) {
    const std::string what = std::to_string(clients) + (clients == 1 ? " client" : " clients");
    const auto add = [&what](const std::string& who, int there) {
      Register("one of many/" + who + "/" + what, [there](auto& state) {
        CallByOneOf(state, there);
      })->Iterations(5000);
    };
    add("tavo", clients);
    add("one client", 1);
  }
}

// In this order: each row of messages goes on where the last one has ended, and many in flight
// leave memory behind that is used again.
void RegisterGrowth(int64_t messages) {
  for (int64_t before = 0, total = 100; total <= messages; before = total, total *= 10) {
    Register("after messages/tavo/" + std::to_string(total) + " messages",
             [](auto& state) { CallSoMany(state, 1); })
        ->Iterations((total - before) / kRepetitions)
        ->Repetitions(kRepetitions);
  }
  RegisterClients();
  for (const int in_flight : {1, 10, 100, 1000, 10'000}) {
    Register("many in flight/tavo/" + std::to_string(in_flight) + " in flight", [in_flight](
                                                                                    auto& state) {
      CallSoMany(state, in_flight);
    })->Iterations(20'000);
  }
}

// ---- Memory ----

void PrintPeak(const char* who, int64_t before, int64_t peak) {
  constexpr double kMiB = 1 << 20;
  constexpr auto kPayload = static_cast<double>(kLargest);
  std::printf(
      "%-6s  %6.1f MiB before  %6.1f MiB at its peak  %5.2f payloads  %5.2f more than before\n",
      who, static_cast<double>(before) / kMiB, static_cast<double>(peak) / kMiB,
      static_cast<double>(peak) / kPayload, static_cast<double>(peak - before) / kPayload);
}

void PrintAllocations(const char* who, int64_t allocations, int calls) {
  std::printf("%-6s  %6.1f a call\n", who, static_cast<double>(allocations) / calls);
}

int PrintMemory() {
  constexpr int kCalls = 10'000;
  EchoClient& client = EchoClient::Get();
  client.Echo(bench::Times(kCalls), kSmall, 1);
  const Memory task = client.GetTaskMemory();
  const Memory here = bench::GetMemory();
  client.Echo(bench::Times(kCalls), kSmall, 1);
  const Memory here_after = bench::GetMemory();
  const Memory task_after = client.GetTaskMemory();
  std::printf("Allocations for a byte list of 64 B and back, one in flight\n");
  PrintAllocations("client", here_after.allocations - here.allocations, kCalls);
  PrintAllocations("task", task_after.allocations - task.allocations, kCalls);

  client.Fetch(kLargest);
  const int64_t peak = bench::GetMemory().peak;
  std::printf("Memory for one reply with a byte list of 16 MiB\n");
  PrintPeak("client", here_after.peak, peak);
  PrintPeak("task", task_after.peak, client.GetTaskMemory().peak);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  qputenv(
      "TAVO_DESK_PATH",
      (QCoreApplication::applicationDirPath() + QStringLiteral("/../bench_tasks")).toLocal8Bit());
  benchmark::Initialize(&argc, argv);  // Takes what is meant for it out of the arguments.
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "--memory") return PrintMemory();
  if (mode == kFirstCalls && argc == 4) {
    return PrintFirstCalls(kWays[std::atoi(argv[2])], std::strtoull(argv[3], nullptr, 10));
  }
  if (mode == "--growth" && argc == 3) {
    RegisterGrowth(std::atoll(argv[2]));
  } else {
    RegisterWarm(1, kLargest);
    RegisterWarm(64, kLarge);
    RegisterCold();
    RegisterClients();
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
