// The entries of a record: what TAVO_DESK_RECORD names, one JSON object a line (docs/desk.md).
//
// Every line is taken as hostile. Members that older files do not have may be missing.
//
// Threads: any.
// Errors:  std::runtime_error with the cause; std::bad_alloc for a line that does not fit into
//          memory.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "cw/encodable_value.h"
#include "desk/common/value_json.h"

namespace tools {

// ---- What a frame holds ----

// Decodes a Base64 text of one value, which is checked before (cw/admission.h). A value that is cut
// off, or has an unknown type within, is what the library makes of it; `fault` says what is wrong,
// otherwise it is empty.
cw::EncodableValue DecodeValue(const std::string& base64, std::string* fault = nullptr);

// ---- Entries ----

struct Entry {
  enum class Kind {
    kRequest,
    kResponse,
    kNotification,
    kError,      // An error that belongs to no request.
    kValue,      // A frame that is no message.
    kUndecoded,  // A frame whose bytes are damaged, or were left out.
    kIntent,
    kEvent,  // The start, the end or the loss of a task, or another event.
  };

  // Whether the entry is of a frame on a task's socket.
  bool IsFrame() const { return kind != Kind::kIntent && kind != Kind::kEvent; }
  // The word for the kind; of an event, its name.
  std::string GetKindName() const;

  Kind kind = Kind::kUndecoded;
  std::string time;                  // As it stands in the record.
  std::optional<int64_t> wall;       // The same, in microseconds since 1970.
  std::optional<int64_t> monotonic;  // Microseconds of CLOCK_MONOTONIC.
  std::string task;
  std::optional<int64_t> task_pid;
  std::optional<int64_t> starter_pid;
  std::string connection;
  std::string direction;  // "to" the task, or "from" it.
  std::string id;
  std::string method;  // Of an intent, its name. Of an answer: see Conversation.
  std::string event;
  std::string payload;    // JSON in one line; empty when there is none.
  std::string words;      // Of an error and an event: what happened, as a sentence.
  bool is_error = false;  // An error, a loss, and an end by a signal or with another status than 0.
  std::string fault;      // What is wrong with the bytes of the frame.
  std::optional<int64_t> latency;  // Of an answer, in microseconds: see Conversation.
};

// Reads a line. A damaged frame is an entry with a fault; what is no entry at all throws. Texts are
// cut to 4,096 bytes each, but for the payload.
Entry ReadEntry(const std::string& line);

// The time between two entries in microseconds, by the better of the clocks that both have.
std::optional<int64_t> GetTimeBetween(const Entry& first, const Entry& second);

// ---- Entries for people ----

std::string ShowTime(const Entry& entry);        // "10:22:52.428"
std::string ShowTask(const Entry& entry);        // "digest[4711]"
std::string ShowDuration(int64_t microseconds);  // "21.2 ms"
// The words or the payload.
const std::string& GetContent(const Entry& entry);

}  // namespace tools
