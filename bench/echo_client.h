// A client of the task echo_task, through everything: client wrapper, service, desk, socket, task,
// server wrapper, and back.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "bench/memory.h"
#include "bench/window.h"
#include "flrpc/client.h"

namespace bench {

cw::EncodableValue PayloadOf(size_t size);

class EchoClient {
 public:
  // Starts a task of its own and connects to it.
  EchoClient();

  // The client that stays until this process ends.
  static EchoClient& Get();

  // Sends payloads and gets them back.
  void Echo(const KeepRunning& keep_running, size_t size, int in_flight);

  // Asks for that many bytes in one reply.
  void Fetch(size_t size);

  // The memory of the task.
  Memory GetTaskMemory();
  pid_t GetTaskProcess();

 private:
  // The result, once it is there.
  cw::EncodableValue Call(const char* method, const cw::EncodableValue& params);

  const std::shared_ptr<flrpc::IClient> client_;
};

// Clients that are there beside the one that stays. The destructor waits until their tasks have
// ended.
class MoreClients {
 public:
  explicit MoreClients(int count);
  ~MoreClients();
  MoreClients(const MoreClients&) = delete;
  MoreClients& operator=(const MoreClients&) = delete;

  // The one that was made last; the one that stays if there are no others.
  EchoClient& GetLast();

 private:
  std::vector<std::unique_ptr<EchoClient>> clients_;
  std::vector<pid_t> tasks_;
};

}  // namespace bench
