#include "tools/monitor_lines.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/printable.h"

namespace tools {
namespace {

using desk::Json;

constexpr char kBold[] = "\033[1m";
constexpr char kFaint[] = "\033[2m";
constexpr char kRed[] = "\033[31m";
constexpr char kGreen[] = "\033[32m";
constexpr char kYellow[] = "\033[33m";
constexpr char kReset[] = "\033[0m";

constexpr size_t kMaxColumn = 24;  // Of a connection, or of a task.
constexpr size_t kMaxName = 40;    // Of a method, or of an identifier.

std::string OrDash(const std::string& text, size_t columns) {
  return text.empty() ? "-" : Fit(text, columns);
}

std::string ArrowOf(const Entry& entry) {
  if (!entry.IsFrame()) return "--";
  return entry.direction == "from" ? "<-" : "->";
}

// The object without its end: Finish adds the payload, which is JSON already.
Json HeadToJson(const Entry& entry, const char* kind) {
  Json json = {{"time", entry.time}};
  const auto add_number = [&json](const char* name, const std::optional<int64_t>& number) {
    if (number) json[name] = *number;
  };
  const auto add_text = [&json](const char* name, const std::string& text) {
    if (!text.empty()) json[name] = text;
  };
  add_number("monotonic", entry.monotonic);
  add_text("connection", entry.connection);
  add_text("task", entry.task);
  add_number("pid", entry.task_pid);
  add_number("starter", entry.starter_pid);
  add_text("direction", entry.direction);
  json["kind"] = kind;
  add_text("id", entry.id);
  add_text("method", entry.method);
  add_number("latency_us", entry.latency);
  add_text("fault", entry.fault);
  return json;
}

const char* PayloadName(const Entry& entry) {
  switch (entry.kind) {
    case Entry::Kind::kRequest:
    case Entry::Kind::kNotification:
    case Entry::Kind::kIntent:
      return "params";
    case Entry::Kind::kResponse:
      return entry.is_error ? "error" : "result";
    case Entry::Kind::kError:
      return "error";
    case Entry::Kind::kEvent:
      return "details";
    default:
      return "value";
  }
}

std::string Finish(const Json& head, const Entry& entry) {
  std::string text = desk::ToText(head);
  if (!entry.payload.empty()) {
    text.back() = ',';
    text += '"' + std::string(PayloadName(entry)) + "\":" + entry.payload + '}';
  }
  return text + '\n';
}

}  // namespace

std::vector<MonitorLines::Part> MonitorLines::MakeHead(const Entry& entry) {
  const std::string connection = OrDash(entry.connection, kMaxColumn);
  const std::string task = OrDash(ShowTask(entry), kMaxColumn);
  connection_width_ = std::max(connection_width_, CountColumns(connection));
  task_width_ = std::max(task_width_, CountColumns(task));
  const char* colour = entry.direction == "from" ? kGreen : kYellow;
  std::vector<Part> parts = {{kFaint, OrDash(ShowTime(entry), kMaxColumn)},
                             {kFaint, Pad(connection, connection_width_)},
                             {nullptr, Pad(task, task_width_)},
                             {colour, ArrowOf(entry)}};
  if (entry.kind == Entry::Kind::kEvent) return parts;
  if (entry.kind == Entry::Kind::kIntent) parts.push_back({nullptr, "intent"});
  parts.push_back({kBold, OrDash(entry.method, kMaxName)});
  if (entry.kind != Entry::Kind::kIntent) parts.push_back({kFaint, OrDash(entry.id, kMaxName)});
  return parts;
}

// Joins the parts with spaces, cut to the terminal's width.
std::string MonitorLines::Join(const std::vector<Part>& parts) const {
  std::string line;
  size_t left = terminal_.columns;
  for (const Part& part : parts) {
    const size_t gap = line.empty() ? 0 : 1;
    if (left <= gap || part.text.empty()) continue;
    const std::string text = Fit(part.text, left - gap);
    left -= gap + CountColumns(text);
    line.append(gap, ' ');
    const bool is_coloured = terminal_.has_colour && part.colour != nullptr;
    line += is_coloured ? part.colour + text + kReset : text;
  }
  return line + '\n';
}

std::string MonitorLines::Describe(const Entry& entry) {
  if (as_json_) return Finish(HeadToJson(entry, entry.GetKindName().c_str()), entry);
  auto parts = MakeHead(entry);
  if (entry.latency) parts.push_back({kYellow, ShowDuration(*entry.latency)});
  parts.push_back({entry.is_error ? kRed : nullptr, GetContent(entry)});
  return Join(parts);
}

std::string MonitorLines::DescribeUnanswered(const Entry& request, std::optional<int64_t> waited) {
  if (as_json_) {
    Json head = HeadToJson(request, "unanswered");
    if (waited) head["waited_us"] = *waited;
    return desk::ToText(head) + '\n';
  }
  auto parts = MakeHead(request);
  parts.push_back({kRed, "no answer" + (waited ? " for " + ShowDuration(*waited) : "")});
  parts.push_back({nullptr, GetContent(request)});
  return Join(parts);
}

void Summary::Add(const Entry& entry) {
  if (entry.IsFrame()) ++messages;
  if (entry.is_error) ++errors;
  constexpr size_t kMaxLatencies = 1000000;
  if (entry.latency && latencies.size() < kMaxLatencies) latencies.push_back(*entry.latency);
}

std::string Summary::Describe() const {
  const auto count = [](size_t number, const char* one, const char* many) {
    return std::to_string(number) + ' ' + (number == 1 ? one : many);
  };
  std::string text = count(messages, "message", "messages");
  if (!latencies.empty()) {
    auto sorted = latencies;
    std::sort(sorted.begin(), sorted.end());
    text += ", " + count(sorted.size(), "answer", "answers") + " (median " +
            ShowDuration(sorted[sorted.size() / 2]) + ", slowest " + ShowDuration(sorted.back()) +
            ')';
  }
  text += ", " + count(errors, "error", "errors");
  return text + ", " + count(unanswered, "request", "requests") + " without an answer\n";
}

}  // namespace tools
