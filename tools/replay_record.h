// The conversations of a record, as they are repeated.
//
// Threads: any; one at a time while a record is read.
// Errors:  CommandError. A damaged line is told on standard error, and the others are used.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "cw/encodable_value.h"
#include "flrpc/message.h"

namespace tools {

constexpr size_t kNoMessage = ~size_t{0};

// A request, an answer to one, or a notification.
struct RecordedMessage {
  flrpc::Message Decode() const { return flrpc::Message::FromBase64(data); }

  bool is_to_task = false;
  flrpc::Message::Type type{};
  std::string method;               // Of an answer, that of its request.
  size_t line = 0;                  // Of the record.
  std::chrono::microseconds at{0};  // Since the connection, 1e12 at most. Times never decrease.
  size_t partner = kNoMessage;      // The answer of a request; else the request that it belongs to.
  std::string call;                 // Of a notification: see GetCall.
  std::string data;                 // Base64.
};

// Returns the token of the kit's calls ("$call") in the parameters of a message, as bytes; empty
// when there is none. It tells to which request a notification belongs (docs/kit.md).
std::string GetCall(const cw::EncodableValue& params);

// What was said over one connection, without the handshake.
struct RecordedConversation {
  std::string connection;  // Empty in records of older versions.
  std::string task;
  bool has_ended = false;  // The task ended, or was lost, without having been stopped.
  std::vector<RecordedMessage> messages;
};

struct RecordSelection {
  std::string file;
  std::string task;        // Its conversations; in a record of one task, those of that one.
  std::string connection;  // Empty: every one of the task.
};

struct Record {
  std::vector<RecordedConversation> conversations;  // In the order of their first messages.
  size_t left_out = 0;                              // Frames that have no part in a replay.
  std::string damage;                               // What is damaged; empty when nothing is.
};

// `command` begins the lines on standard error.
Record ReadRecord(const std::string& command, const RecordSelection& selection);

}  // namespace tools
