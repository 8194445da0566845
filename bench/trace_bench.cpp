// What libtavo-trace.so adds to a round trip between two processes: the library alone, behind the
// trace, and recorded by it. A benchmark's name is operation/who/what; a time is that of one call.
//
// Each way is a process of its own, since a process decides once what it records. It is told by
// lines on descriptor 3 how many calls to make, and answers with their time.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <QCoreApplication>
#include <QTemporaryDir>

#include "bench/child.h"
#include "bench/echo_client.h"

namespace {

constexpr char kServe[] = "--serve";
constexpr int kSocket = 3;
constexpr int kBatches = 20;
constexpr int kCallsOfBatch = 100;

std::string GetDirectory() { return QCoreApplication::applicationDirPath().toStdString(); }

// ---- The process of a way ----

double Measure(size_t size, int calls) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point begin;
  Clock::time_point end;
  bool has_begun = false;
  const auto count = [&, times = bench::Times(calls)] {
    end = Clock::now();
    if (!has_begun) begin = end;
    has_begun = true;
    return times();
  };
  bench::EchoClient::Get().Echo(count, size, 1);
  return std::chrono::duration<double>(end - begin).count();
}

int Serve() {
  FILE* const orders = fdopen(kSocket, "r");
  size_t size = 0;
  int calls = 0;
  while (std::fscanf(orders, "%zu %d", &size, &calls) == 2) {
    dprintf(kSocket, "%.9f\n", Measure(size, calls));
  }
  return 0;
}

// ---- The ways ----

class Way {
 public:
  Way(std::string who, const std::string& libraries, const std::string& file)
      : who_(std::move(who)),
        process_({"env", "TAVO_BENCH_LIBS=" + GetDirectory() + libraries, "TAVO_TRACE_FILE=" + file,
                  QCoreApplication::applicationFilePath().toStdString(), kServe}) {}

  const std::string& GetName() const { return who_; }

  // In seconds.
  double Call(size_t size, int calls) const {
    dprintf(process_.GetSocket(), "%zu %d\n", size, calls);
    const double time = std::atof(process_.ReadLine().c_str());
    if (time <= 0) bench::GiveUp("a process tells no time");
    return time;
  }

 private:
  const std::string who_;
  const bench::Child process_;
};

void Register(const std::shared_ptr<Way>& way, const char* name, size_t size) {
  const auto call = [way, size](benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
      state.SetIterationTime(way->Call(size, kCallsOfBatch) / kCallsOfBatch);
    }
  };
  benchmark::RegisterBenchmark(("round trip/" + way->GetName() + "/" + name).c_str(), call)
      ->UseManualTime()
      ->Iterations(kBatches);
}

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  qputenv("TAVO_DESK_PATH", (GetDirectory() + "/../bench_tasks").c_str());
  benchmark::Initialize(&argc, argv);
  if (argc > 1 && argv[1] == std::string(kServe)) return Serve();
  const QTemporaryDir directory;
  const std::string file = directory.filePath(QStringLiteral("record")).toStdString();
  const std::shared_ptr<Way> ways[] = {std::make_shared<Way>("tavo", "/../lib", ""),
                                       std::make_shared<Way>("trace, off", "/../trace/lib", ""),
                                       std::make_shared<Way>("trace, on", "/../trace/lib", file)};
  for (const auto& way : ways) way->Call(4 << 10, 3000);  // Both files of the record are there.
  for (const auto& way : ways) Register(way, "64 B", 64);
  for (const auto& way : ways) Register(way, "4 KiB", 4 << 10);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
