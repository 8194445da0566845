// Repeats recorded conversations with a task, in the place of its starter.
//
// Threads: the main thread alone.
// Errors:  CommandError.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/replay_differences.h"
#include "tools/replay_record.h"

namespace tools {

struct ReplayPlan {
  std::string task;
  double timeout = 25;        // Seconds for the connection and for what the task sends; 0: none.
  bool is_fast = false;       // Without the recorded pauses.
  bool answers_only = false;  // Notifications of the task do not count.
};

struct ReplayCounts {
  size_t sent = 0;
  size_t answers = 0;        // Of those that are in the record,
  size_t notifications = 0;  // so many were compared.
};

// Starts the task, sends what was sent then, and compares what comes.
void ReplayAgainst(const RecordedConversation& conversation, const ReplayPlan& plan,
                   Differences& differences, ReplayCounts& counts);

}  // namespace tools
