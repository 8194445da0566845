// The conversions between a message and its Base64 text that a transport needs: without the copies
// that the public ones make (flrpc/message.h), with the same results.
//
// Threads: any.
#pragma once

#include <string>
#include <string_view>

#include "flrpc/message.h"

namespace flrpc::details {

// The text of Message::ToBase64. The message is destroyed before its text is made, so a large
// payload is not held in both. The memory of the text is kept for the next message
// (forge/spare_texts.h).
class MessageText {
 public:
  explicit MessageText(Message&& message);
  ~MessageText();
  MessageText(const MessageText&) = delete;
  MessageText& operator=(const MessageText&) = delete;

  // Empty if the message cannot be encoded.
  const std::string& Get() const { return text_; }

 private:
  std::string text_;
};

// Same contract as Message::FromBase64. The text is borrowed until the call returns.
Message FromText(std::string_view text);

}  // namespace flrpc::details
