#include "trace/json_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "desk/common/utf8.h"

namespace trace {
namespace {

bool IsPlainCharacter(char c) {
  return static_cast<uint8_t>(c) < 0x80 && c >= ' ' && c != '"' && c != '\\';
}

// As many characters as the processor compares at once, or as the compiler makes of that.
using Characters [[gnu::vector_size(16)]] = signed char;

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

bool IsPlain(std::string_view text) {
  constexpr size_t kBlock = 4;  // Without an exit within.
  Characters block[kBlock];
  for (; text.size() >= sizeof block; text.remove_prefix(sizeof block)) {
    std::memcpy(block, text.data(), sizeof block);
    Characters others{};
    for (const Characters& some : block) {  // Below a blank is also what is no ASCII.
      others |= (some < ' ') | (some == '"') | (some == '\\');
    }
    uint64_t words[sizeof others / sizeof(uint64_t)];
    std::memcpy(words, &others, sizeof words);
    if ((words[0] | words[1]) != 0) return false;
  }
  return std::all_of(text.begin(), text.end(), IsPlainCharacter);
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
