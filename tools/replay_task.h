// Plays the task of recorded conversations.
//
// A request or a notification of the starter brings what followed it in the record: its answer, and
// the notifications of the task up to the next message of the starter. It is recognised by method
// and parameters. Equal messages bring what followed the first one in the record, the second one
// and so on; when there are no more, the last one counts again. The connection brings what the task
// sent at the beginning of the first conversation.
//
// Threads: the main thread alone.
// Errors:  CommandError.
#pragma once

#include <vector>

#include "tools/replay_record.h"
#include "tools/value_path.h"

namespace tools {

struct ReplayRole {
  std::vector<ValuePath> ignored;  // Places in what the starter sends that may differ.
  bool has_pauses = false;         // What followed comes as late as it did then.
};

// Serves until a signal ends the process.
void ReplayAs(const std::vector<RecordedConversation>& conversations, const ReplayRole& role);

}  // namespace tools
