#include "trace/json_text.h"

#include <algorithm>
#include <cstdio>

#include "desk/common/utf8.h"

namespace trace {
namespace {

bool IsPlainCharacter(char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; }

void AppendEscaped(std::string* json, std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const size_t length = desk::GetSequenceLength(text, at);
    const char c = text[at];
    if (length == 0) {
      json->append("\\ufffd");
    } else if (length > 1 || IsPlainCharacter(c)) {
      json->append(text, at, length);
    } else if (c == '"' || c == '\\') {
      json->append({'\\', c});
    } else {
      char escape[sizeof "\\u0000"];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      json->append(escape);
    }
    at += std::max<size_t>(length, 1);
  }
}

}  // namespace

// A block has no exit within, so it takes few instructions for many characters.
bool IsPlain(std::string_view text) {
  constexpr size_t kBlock = 64;
  while (!text.empty()) {
    const std::string_view block = text.substr(0, kBlock);
    unsigned others = 0;
    for (const char c : block) others |= IsPlainCharacter(c) ? 0U : 1U;
    if (others != 0) return false;
    text.remove_prefix(block.size());
  }
  return true;
}

void AppendJsonText(std::string* json, std::string_view text) {
  json->push_back('"');
  if (IsPlain(text)) {
    json->append(text);
  } else {
    AppendEscaped(json, text);
  }
  json->push_back('"');
}

}  // namespace trace
