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

  void Note(const std::string& event, unsigned int chunk) {
    events.push_back(event);
    last_chunk = chunk;
  }
  Events Take() { return std::exchange(events, {}); }

  static std::string Describe(const char* name, int code, const char* text) {
    return std::string(name) + " " + std::to_string(code) + " <" + text + ">";
  }
  static void OnStarted(void* self, int code, const char* text, unsigned int chunk) {
    static_cast<Recorder*>(self)->Note(Describe("started", code, text), chunk);
  }
  static void OnDisconnect(void* self, int code, const char* text, unsigned int chunk) {
    static_cast<Recorder*>(self)->Note(Describe("disconnect", code, text), chunk);
  }
  static void OnMessage(void* self, const char* text, unsigned int chunk) {
    static_cast<Recorder*>(self)->Note("message <" + std::string(text) + ">", chunk);
  }
  static void OnRelease(void* self) { static_cast<Recorder*>(self)->Note("release", 0); }

  TAVORpcClientSlots ClientSlots() {
    return {sizeof(TAVORpcClientSlots), OnStarted, OnDisconnect, OnMessage, OnRelease, this};
  }
  TAVORpcServerSlots ServerSlots() {
    return {sizeof(TAVORpcServerSlots), OnStarted, OnMessage, OnRelease, this};
  }
};

}  // namespace test
