// A process that is ended with this one, at the latest. Its descriptor 3 is a socket to us.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace bench {

class Child {
 public:
  explicit Child(const std::vector<std::string>& command);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  int GetSocket() const { return socket_; }

  // Without its newline; empty when the process has ended.
  std::string ReadLine() const;

 private:
  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace bench
