#include "tools/latency_table.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

#include "desk/common/value_json.h"

namespace tools {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;
using Seconds = std::chrono::duration<double>;

// The least of the sorted values that is not below this part of them. 0 without values.
double Percentile(const std::vector<LatencyTable::Duration>& sorted, size_t percent) {
  constexpr size_t kAll = 100;
  if (sorted.empty()) return 0;
  const size_t rank = (sorted.size() * percent + kAll - 1) / kAll;
  return Milliseconds(sorted[std::max<size_t>(rank, 1) - 1]).count();
}

double Round(double number) {
  constexpr double kThousandths = 1000;
  return std::round(number * kThousandths) / kThousandths;
}

}  // namespace

struct LatencyTable::Summary {
  double min, median, p99, max;
  double seconds;
  double calls_per_second;
};

LatencyTable::Summary LatencyTable::Summarize(Duration total) const {
  std::vector<Duration> sorted = latencies_;
  std::sort(sorted.begin(), sorted.end());
  const double seconds = Seconds(total).count();
  const double rate = seconds > 0 ? static_cast<double>(sorted.size()) / seconds : 0;
  return {Percentile(sorted, 0),
          Percentile(sorted, 50),
          Percentile(sorted, 99),
          Percentile(sorted, 100),
          seconds,
          rate};
}

std::string LatencyTable::ToText(Duration total) const {
  const Summary summary = Summarize(total);
  std::ostringstream text;
  text << std::fixed << std::setprecision(3);
  text << "calls    " << CountCalls() << " (" << errors_ << " errors)\n"
       << "min      " << summary.min << " ms\n"
       << "median   " << summary.median << " ms\n"
       << "p99      " << summary.p99 << " ms\n"
       << "max      " << summary.max << " ms\n"
       << "total    " << summary.seconds << " s\n"
       << "calls/s  " << std::setprecision(0) << summary.calls_per_second;
  return text.str();
}

std::string LatencyTable::ToJsonText(Duration total) const {
  const Summary summary = Summarize(total);
  return desk::ToText(desk::Json{{"calls", CountCalls()},
                                 {"errors", errors_},
                                 {"min_ms", Round(summary.min)},
                                 {"median_ms", Round(summary.median)},
                                 {"p99_ms", Round(summary.p99)},
                                 {"max_ms", Round(summary.max)},
                                 {"seconds", Round(summary.seconds)},
                                 {"calls_per_second", Round(summary.calls_per_second)}});
}

}  // namespace tools
