#include "tools/printable.h"

#include <algorithm>
#include <cstdio>

namespace tools {
namespace {

bool IsWithin(uint32_t value, uint32_t first, uint32_t last) {
  return value >= first && value <= last;
}

bool IsShownAsItIs(uint32_t point) {
  const bool is_control = point < 0x20 || IsWithin(point, 0x7F, 0x9F);
  const bool is_layout = point == 0x061C || point == 0xFEFF || IsWithin(point, 0x200B, 0x200F) ||
                         IsWithin(point, 0x2028, 0x202E) || IsWithin(point, 0x2060, 0x206F);
  const bool is_character = (point & 0xFFFE) != 0xFFFE && !IsWithin(point, 0xFDD0, 0xFDEF);
  return !is_control && !is_layout && is_character;
}

// The scripts and signs that take two columns.
bool IsWide(uint32_t point) {
  return IsWithin(point, 0x1100, 0x115F) || IsWithin(point, 0x2E80, 0xA4CF) ||
         IsWithin(point, 0xAC00, 0xD7A3) || IsWithin(point, 0xF900, 0xFAFF) ||
         IsWithin(point, 0xFE30, 0xFE6F) || IsWithin(point, 0xFF00, 0xFF60) ||
         IsWithin(point, 0xFFE0, 0xFFE6) || IsWithin(point, 0x1F300, 0x1FAFF) ||
         IsWithin(point, 0x20000, 0x3FFFD);
}

size_t ColumnsOf(const CodePoint& point) { return IsWide(point.value) ? 2 : 1; }

}  // namespace

CodePoint DecodeUtf8(const std::string& text, size_t at) {
  const auto first = static_cast<uint8_t>(text[at]);
  if (first < 0x80) return {first, 1, true};
  const size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || at + size > text.size()) return {first, 1, false};
  uint32_t value = first & (0x7Fu >> size);
  for (size_t i = 1; i < size; ++i) {
    const auto byte = static_cast<uint8_t>(text[at + i]);
    if ((byte & 0xC0) != 0x80) return {first, 1, false};
    value = value << 6 | (byte & 0x3F);
  }
  constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool is_valid =
      value >= kLeast[size] && value <= 0x10FFFF && !IsWithin(value, 0xD800, 0xDFFF);
  return is_valid ? CodePoint{value, size, true} : CodePoint{first, 1, false};
}

std::string Printable(const std::string& text) {
  std::string printable;
  for (size_t at = 0; at < text.size();) {
    const CodePoint point = DecodeUtf8(text, at);
    if (point.is_valid && IsShownAsItIs(point.value)) {
      printable.append(text, at, point.size);
    } else {
      char escaped[16];
      const bool is_byte = !point.is_valid || point.value < 0x80;
      std::snprintf(escaped, sizeof escaped, is_byte ? "\\x%02x" : "\\u%04x", point.value);
      printable += escaped;
    }
    at += point.size;
  }
  return printable;
}

size_t CountColumns(const std::string& printable) {
  size_t columns = 0;
  for (size_t at = 0; at < printable.size();) {
    const CodePoint point = DecodeUtf8(printable, at);
    columns += ColumnsOf(point);
    at += point.size;
  }
  return columns;
}

std::string Fit(const std::string& text, size_t columns) {
  constexpr size_t kDots = 3;
  // A code point has four bytes at most: what lies behind them cannot be seen.
  std::string printable = Printable(text.substr(0, 4 * columns + 4));
  size_t used = 0;
  size_t cut = 0;  // Where the text is cut if it does not fit.
  for (size_t at = 0; at < printable.size();) {
    const CodePoint point = DecodeUtf8(printable, at);
    used += ColumnsOf(point);
    at += point.size;
    if (used + kDots <= columns) cut = at;
    if (used > columns) {
      return printable.substr(0, cut) + std::string(std::min(columns, kDots), '.');
    }
  }
  return printable;
}

std::string Pad(std::string printable, size_t columns) {
  const size_t used = CountColumns(printable);
  if (used < columns) printable.append(columns - used, ' ');
  return printable;
}

}  // namespace tools
