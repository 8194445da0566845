// What a hostile peer may send: each level of the way in has its own bombs.
#pragma once

#include <string>
#include <vector>

namespace test {

struct Bomb {
  // A part of the bytes, and how often it comes.
  struct Part {
    std::string bytes;
    size_t count = 1;
  };

  std::string Make() const;  // The bytes on the socket.

  const char* name;
  std::string (*wrap)(const std::string& bytes);  // Puts the parts into a line.
  std::vector<Part> parts;
  int most_mebibytes = 64;       // What the victim may take for it, above what it had.
  bool ends_connection = false;  // By design, beyond the desk's limits.
};

std::vector<Bomb> GetTextBombs();  // Lines, JSON and Base64.
std::vector<Bomb> GetValueBombs();
std::vector<Bomb> GetMessageBombs();
std::vector<Bomb> GetEarlyBombs();  // These come before the handshake.

// The line that carries the bytes of a value.
std::string LineOf(const std::string& bytes);
std::string LineOfText(const std::string& base64);

}  // namespace test
