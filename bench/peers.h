// What the service is measured beside, each between two processes as well.
#pragma once

#include <cstddef>

#include "bench/window.h"

namespace bench {

// The same JSON lines over a QLocalSocket, with Qt's JSON and Base64.
void CallJsonLines(const KeepRunning& keep_running, size_t size, int in_flight);

// The same lines over a QLocalSocket, without a look at their JSON.
void CallLines(const KeepRunning& keep_running, size_t size, int in_flight);

// The payload in a D-Bus call through a daemon of its own.
void CallDBus(const KeepRunning& keep_running, size_t size, int in_flight);

// The same lines over a blocking socket, without a look at their JSON; one in flight only.
void CallRawSocket(const KeepRunning& keep_running, size_t size, int in_flight);

}  // namespace bench
