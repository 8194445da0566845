// Texts of other processes as they may be shown to people: one line, no control characters.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tools {

struct CodePoint {
  uint32_t value = 0;
  size_t size = 1;  // In bytes.
  bool is_valid = false;
};

// Decodes the UTF-8 sequence that begins at `at`, which is within the text.
CodePoint DecodeUtf8(const std::string& text, size_t at);

// Replaces what a terminal or a document would not show as it is (control characters, marks that
// change the direction of writing, bytes that are no UTF-8) by \xNN and \uNNNN.
std::string Printable(const std::string& text);

// The columns of a terminal that a printable text takes.
size_t CountColumns(const std::string& printable);

// The same as Printable, cut to this number of columns; the text then ends with "...".
std::string Fit(const std::string& text, size_t columns);

// Appends spaces up to this number of columns.
std::string Pad(std::string printable, size_t columns);

}  // namespace tools
