// Slots of a client or a server that write down what they are told.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "src/tavo_capi.h"

namespace test {

using Events = std::vector<std::string>;

struct Recorder {
  Events events;
  unsigned int last_chunk = 0;

  Events Take() { return std::exchange(events, {}); }

  static void Note(void* self, const std::string& event, const char* text, unsigned int chunk) {
    static_cast<Recorder*>(self)->events.push_back(event + " <" + text + ">");
    static_cast<Recorder*>(self)->last_chunk = chunk;
  }
  template <bool kIsStart>
  static void OnState(void* self, int code, const char* text, unsigned int chunk) {
    Note(self, (kIsStart ? "started " : "disconnect ") + std::to_string(code), text, chunk);
  }
  static void OnMessage(void* self, const char* text, unsigned int chunk) {
    Note(self, "message", text, chunk);
  }
  static void OnRelease(void* self) { static_cast<Recorder*>(self)->events.push_back("release"); }

  TAVORpcClientSlots ClientSlots() {
    return {sizeof(TAVORpcClientSlots), OnState<true>, OnState<false>, OnMessage, OnRelease, this};
  }
  TAVORpcServerSlots ServerSlots() {
    return {sizeof(TAVORpcServerSlots), OnState<true>, OnMessage, OnRelease, this};
  }
};

}  // namespace test
