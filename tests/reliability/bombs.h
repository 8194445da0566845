// What a hostile peer may send: each level of the way in has its own bombs.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace test {

struct Bomb {
  enum Moment { kEarly, kAnyTime };  // Before the handshake, or after it.

  const char* name;
  std::function<std::string()> make;  // The bytes on the socket.
  Moment moment = kAnyTime;
  bool ends_connection = false;  // By design, beyond the desk's limits.
  int most_mebibytes = 64;       // What the victim may take for it, above what it had.
};

const std::vector<Bomb>& GetBombs();

// The line that carries the bytes of a value.
std::string LineOf(const std::string& bytes);
std::string LineOfText(const std::string& base64);

}  // namespace test
