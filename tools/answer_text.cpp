#include "tools/answer_text.h"

#include <nlohmann/json.hpp>

#include "desk/common/value_json.h"

namespace tools {

std::string ToLine(const flrpc::Message::Notification& notification) {
  return desk::ToText(
      desk::Json{{"method", notification.method}, {"params", desk::ToJson(notification.params)}});
}

std::string ToLines(const flrpc::Message::Error& error) {
  const std::string line = "error " + std::to_string(error.code) + ": " + Printable(error.message);
  return error.data.IsNull() ? line : line + '\n' + desk::ToText(error.data);
}

std::string Printable(const std::string& text) {
  constexpr char kDigits[] = "0123456789abcdef";
  constexpr unsigned char kBlank = 0x20, kDelete = 0x7f;
  std::string printable;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    // Terminals also obey U+0080 to U+009F, which are 0xc2 and another byte in UTF-8.
    const bool ends_control = !printable.empty() && printable.back() == '\xc2' && byte < 0xa0;
    if (ends_control) printable.replace(printable.size() - 1, 1, "\\xc2");
    if (byte < kBlank || byte == kDelete || ends_control) {
      printable += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xf]};
    } else {
      printable += c;
    }
  }
  return printable;
}

}  // namespace tools
