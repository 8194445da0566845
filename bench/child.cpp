#include "bench/child.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "bench/window.h"

namespace bench {

Child::Child(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) GiveUp("no socket pair");
  process_ = fork();
  if (process_ < 0) GiveUp("no process can be started");
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(sockets[1], 3);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  close(sockets[1]);
  socket_ = sockets[0];
}

Child::~Child() {
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
  close(socket_);
}

std::string Child::ReadLine() const {
  std::string line;
  for (char c = 0; read(socket_, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

}  // namespace bench
