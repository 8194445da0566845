// What is said to the task "digest":
//
//   request "digest" FileName  ->  Digest; progress: bytes read so far, of a large file
//   request "shutdown"         ->  null; the task ends
//
// Wrong parameters are answered with -32602, a file that cannot be read with kCannotBeRead.
#pragma once

#include <kit/describe.h>

#include <cstdint>
#include <string>

namespace digest {

constexpr int kCannotBeRead = -32000;

// Absolute and percent-encoded, because texts are UTF-8 while names are any bytes. Unlike bytes,
// such a text stays readable in a record of the messages.
struct FileName {
  std::string path;
};
TAVO_DESCRIBE(FileName, path)

struct Digest {
  std::string sha256;
  int64_t size = 0;
};
TAVO_DESCRIBE(Digest, sha256, size)

}  // namespace digest
