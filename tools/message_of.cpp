#include "tools/message_of.h"

#include <string>

#include "cw/map_access.h"

namespace tools {

std::optional<flrpc::Message> MessageOf(const cw::EncodableValue& value) {
  const auto* map = value.GetIf<cw::EncodableMap>();
  if (!map) return std::nullopt;
  if (const auto* method = cw::Find(*map, "method")) {  // The conversion logs such a method.
    const auto* name = method->GetIf<std::string>();
    if (!name || name->empty()) return std::nullopt;
  }
  auto message = flrpc::Message::FromEncodable(value);
  const bool is_failure = message.IsError() && message.ToEncodable() != value;
  if (is_failure || message.IsEmpty()) return std::nullopt;
  return message;
}

}  // namespace tools
