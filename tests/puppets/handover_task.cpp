// A task that is played by somebody else: hands each connection that its starter makes over to the
// process that listens at TAVO_TEST_HANDOVER.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

int main() {
  sockaddr_un address{AF_UNIX, ""};
  const char* path = std::getenv("TAVO_TEST_HANDOVER");
  std::strncpy(address.sun_path, path ? path : "", sizeof address.sun_path - 1);
  char byte = 0;
  iovec data{&byte, 1};
  for (int sent = 1; sent == 1;) {
    const int peer = accept(3, nullptr, nullptr);
    const int other = socket(AF_UNIX, SOCK_STREAM, 0);
    const auto* there = reinterpret_cast<sockaddr*>(&address);
    if (connect(other, there, sizeof address) != 0) return 1;
    alignas(cmsghdr) char room[CMSG_SPACE(sizeof peer)] = {};
    const msghdr message{nullptr, 0, &data, 1, room, sizeof room, 0};
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    *header = {CMSG_LEN(sizeof peer), SOL_SOCKET, SCM_RIGHTS};
    std::memcpy(CMSG_DATA(header), &peer, sizeof peer);
    sent = static_cast<int>(sendmsg(other, &message, MSG_NOSIGNAL));
    close(other);
    close(peer);
  }
  return 2;
}
