#include "tools/answer_text.h"

#include <nlohmann/json.hpp>

#include "desk/common/value_json.h"
#include "tools/printable.h"

namespace tools {

constexpr auto kSmall = desk::SmallInt64::kPlain;

std::string ToLine(const flrpc::Message::Notification& notification) {
  return desk::ToText(desk::Json{{"method", notification.method},
                                 {"params", desk::ToJson(notification.params, kSmall)}});
}

std::string ToLines(const flrpc::Message::Error& error) {
  const std::string line = "error " + std::to_string(error.code) + ": " + Printable(error.message);
  return error.data.IsNull() ? line : line + '\n' + desk::ToText(error.data, kSmall);
}

}  // namespace tools
