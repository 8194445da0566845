// What the tasks of a session do, counted from the entries of the record (docs/desk.md).
//
// Threads: one at a time.
// Errors:  none: an entry that makes no sense is ignored.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <unordered_map>
#include <vector>

namespace tools {

// A task, as its starter sees it.
struct TrafficKey {
  std::string task;
  int starter = 0;  // Process ids; 0: unknown.
  int pid = 0;

  bool operator<(const TrafficKey& other) const;
};

struct TaskTraffic {
  uint64_t calls = 0;  // Requests since the last Restart; the other figures as well.
  uint64_t bytes = 0;
  std::vector<int64_t> latencies;  // Microseconds, unsorted; at most kMaxLatencies of them.

  // The time of each unanswered request, by connection, direction and identifier.
  std::unordered_map<std::string, int64_t> in_flight;
};

// What tells requests and responses apart, and which belong together.
struct RpcHead {
  std::string id;  // Empty: neither a request nor a response.
  bool has_method = false;
};

class Traffic {
 public:
  static constexpr size_t kMaxTasks = 4096;
  static constexpr size_t kMaxLatencies = 1 << 16;
  static constexpr size_t kMaxInFlight = 1 << 16;  // Of one task.

  // Counts an entry, a line of the record.
  void Take(const std::string& line);

  const std::map<TrafficKey, TaskTraffic>& GetTasks() const { return tasks_; }
  uint64_t GetDropped() const { return dropped_; }  // Entries that this watcher has missed.

  void Forget(const TrafficKey& key) { tasks_.erase(key); }

  // Begins the next interval. What is in flight stays.
  void Restart();

 private:
  using Json = nlohmann::ordered_json;

  void TakeEvent(const Json& entry, const std::string& event);
  void TakeMessage(const Json& entry);
  static void Count(const Json& entry, const RpcHead& head, TaskTraffic* task);
  TaskTraffic* Find(const TrafficKey& key);

  std::map<TrafficKey, TaskTraffic> tasks_;
  uint64_t dropped_ = 0;
};

}  // namespace tools
