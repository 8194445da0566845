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

constexpr uint64_t RepeatByte(uint8_t byte) { return byte * UINT64_C(0x0101010101010101); }

constexpr uint64_t kHighBits = RepeatByte(0x80);

// Sets the high bit of each byte that is a plain character. No sum carries into the next byte.
uint64_t MarkPlain(uint64_t word) {
  constexpr uint64_t kRest = ~kHighBits;
  const uint64_t low = word & kRest;
  const uint64_t no_control = low + RepeatByte(0x80 - ' ');
  const uint64_t no_quote = (low ^ RepeatByte('"')) + kRest;
  const uint64_t no_backslash = (low ^ RepeatByte('\\')) + kRest;
  return no_control & no_quote & no_backslash & ~word & kHighBits;
}

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
  constexpr size_t kWords = 8;  // In a block, which has no exit within.
  while (text.size() >= kWords * sizeof(uint64_t)) {
    uint64_t words[kWords];
    std::memcpy(words, text.data(), sizeof words);
    uint64_t plain = kHighBits;
    for (const uint64_t word : words) plain &= MarkPlain(word);
    if (plain != kHighBits) return false;
    text.remove_prefix(sizeof words);
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
