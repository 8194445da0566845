// A task that is played by somebody else: hands each connection that its starter makes over to the
// process that listens at TAVO_TEST_HANDOVER.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

bool HandOver(int connection, const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  const int other = socket(AF_UNIX, SOCK_STREAM, 0);
  if (connect(other, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return false;
  char byte = 0;
  iovec data{&byte, 1};
  alignas(cmsghdr) char room[CMSG_SPACE(sizeof connection)] = {};
  const msghdr message{nullptr, 0, &data, 1, room, sizeof room, 0};
  cmsghdr* header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof connection);
  std::memcpy(CMSG_DATA(header), &connection, sizeof connection);
  const bool sent = sendmsg(other, &message, MSG_NOSIGNAL) == 1;
  close(other);
  close(connection);
  return sent;
}

}  // namespace

int main() {
  for (const char* path = std::getenv("TAVO_TEST_HANDOVER"); path;) {
    const int connection = accept(3, nullptr, nullptr);
    if (connection >= 0 && !HandOver(connection, path)) return 1;
  }
  return 2;
}
