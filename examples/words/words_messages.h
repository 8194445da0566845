// What is said to the task "words":
//
//   request "count" FileName -> Words   with progress, the part that is done, from 0 to 1
#pragma once

#include <kit/describe.h>

#include <cstdint>
#include <string>

namespace words_messages {

constexpr int kCannotBeRead = 1;  // The code of the error answer.

struct FileName {
  std::string path;
};
TAVO_DESCRIBE(FileName, path)

struct Words {
  int64_t lines = 0;
  int64_t words = 0;
};
TAVO_DESCRIBE(Words, lines, words)

}  // namespace words_messages
