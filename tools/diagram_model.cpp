#include "tools/diagram_model.h"

#include <algorithm>
#include <utility>

#include "tools/printable.h"

namespace tools {
namespace {

constexpr size_t kMaxLaneName = 40;

std::string KeyOf(int64_t pid) { return "pid " + std::to_string(pid); }

}  // namespace

std::string GetLabel(const Diagram::Row& row) {
  const Entry& entry = row.entry;
  std::string label = row.is_unanswered ? "(no answer)" : "";
  const auto add = [&label](const std::string& text) {
    if (!label.empty() && !text.empty()) label += ' ';
    label += text;
  };
  if (entry.kind == Entry::Kind::kIntent) add("intent");
  add(entry.method);
  if (entry.latency) add(ShowDuration(*entry.latency));
  add(GetContent(entry));
  return label;
}

void DiagramBuilder::Add(Entry entry) {
  const uint64_t request = conversation_.Take(++number_, {}, &entry);
  if (const auto found = requests_.find(request); found != requests_.end()) {
    diagram_.rows[found->second].is_unanswered = false;
  }
  if (!match_.Accepts(entry)) return;
  if (diagram_.rows.size() < limit_) return AddRow(std::move(entry), request);
  diagram_.is_cut = true;  // Later entries still tell which requests are answered.
}

void DiagramBuilder::AddRow(Entry entry, uint64_t request) {
  Diagram::Row& row = diagram_.rows.emplace_back();
  if (const auto found = requests_.find(request); found != requests_.end()) {
    row.request = found->second;
  }
  if (entry.kind == Entry::Kind::kRequest) {
    row.is_unanswered = true;
    requests_.emplace(number_, diagram_.rows.size() - 1);
  }
  row.payload_size = entry.payload.size();
  const size_t kept = std::min(Diagram::kMaxPayload, Diagram::kMaxPayloads - payloads_);
  if (row.payload_size > kept) {
    entry.payload.resize(kept);
    entry.payload.shrink_to_fit();
  }
  payloads_ += entry.payload.size();
  row.entry = std::move(entry);
}

// The lanes come in the order in which their processes speak. What does not speak comes behind.
Diagram DiagramBuilder::Finish() {
  for (Diagram::Row& row : diagram_.rows) {
    if (row.entry.IsFrame()) PlaceFrame(&row);
  }
  for (Diagram::Row& row : diagram_.rows) {
    if (!row.entry.IsFrame()) PlaceOther(&row);
  }
  return std::move(diagram_);
}

// A starter may be a task itself, which then has one lane.
size_t DiagramBuilder::GetStarterLane(const Entry& entry) {
  if (!entry.starter_pid) return GetLane("starter", "starter");
  return GetLane(KeyOf(*entry.starter_pid), "");
}

void DiagramBuilder::PlaceFrame(Diagram::Row* row) {
  const Entry& entry = row->entry;
  row->from = GetStarterLane(entry);
  row->to =
      GetLane(entry.task_pid ? KeyOf(*entry.task_pid) : "task " + entry.task, ShowTask(entry));
  if (entry.direction == "from") std::swap(row->from, row->to);
}

// An older record names the process of a task in its events only.
void DiagramBuilder::PlaceOther(Diagram::Row* row) {
  const Entry& entry = row->entry;
  if (entry.kind == Entry::Kind::kIntent) {
    row->from = entry.starter_pid ? GetStarterLane(entry) : GetLane("intents", "intents");
  } else {
    const std::string by_name = "task " + entry.task;
    const std::string by_pid = entry.task_pid ? KeyOf(*entry.task_pid) : by_name;
    const bool is_named = lanes_.count(by_pid) == 0 && lanes_.count(by_name) > 0;
    row->from = GetLane(is_named ? by_name : by_pid, ShowTask(entry));
  }
  row->to = row->from;
}

// An empty name is unknown; the key stands in for it until a name comes.
size_t DiagramBuilder::GetLane(const std::string& key, const std::string& name) {
  const auto found = lanes_.find(key);
  const bool is_new = found == lanes_.end();
  const bool is_full = diagram_.lanes.size() == Diagram::kMaxLanes;
  if (is_new && is_full) {
    diagram_.lanes.back() = "others";
    return diagram_.lanes.size() - 1;
  }
  const size_t lane = is_new ? diagram_.lanes.size() : found->second;
  if (is_new) {
    lanes_.emplace(key, lane);
    diagram_.lanes.push_back(key);
  }
  if (!name.empty() && diagram_.lanes[lane] == key) {
    diagram_.lanes[lane] = Fit(name, kMaxLaneName);
  }
  return lane;
}

}  // namespace tools
