// The channels between the plug-in and the Dart side, which the embedder plays.
//
// Threads: the embedder's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>

#include "desk/embedder/slot.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {

struct Engine;

using Reply = std::function<void(const uint8_t* data, size_t size)>;
using Listener = std::function<void(const uint8_t* data, size_t size, const Reply& reply)>;

class Messenger {
 public:
  explicit Messenger(Engine& engine) : engine_(engine) {}

  // The plug-in's side.
  void Send(const char* channel, const uint8_t* data, size_t size,
            FlutterOstrelReplyCallback callback, void* user_data);
  void SetHandler(const char* channel, FlutterOstrelMessageCallback callback, void* user_data);
  unsigned int Subscribe(const char* channel, SharedSlot<FlutterOstrelBoolSlot> slot);
  void Unsubscribe(const char* channel, unsigned int id);
  void Respond(_FlutterOstrelResponse* response, const uint8_t* data, size_t size);

  // The Dart side; embedder.h has the contracts.
  bool Deliver(const std::string& channel, const uint8_t* data, size_t size, Reply reply);
  void Listen(const std::string& channel, Listener listener);

  // Drops all handlers and listeners, and records the messages that were not answered.
  void Close();

 private:
  struct Handler {
    FlutterOstrelMessageCallback callback = nullptr;
    void* user_data = nullptr;
  };
  struct Response {
    const std::string* channel;  // Points to a key of handlers_, whose keys are never removed.
    Reply reply;
  };

  void Pass(const std::string& channel, const uint8_t* data, size_t size, const Reply& reply);

  Engine& engine_;
  std::unordered_map<std::string, Handler> handlers_;
  std::unordered_map<uintptr_t, Response> responses_;  // By the numbers of their handles.
  uintptr_t last_response_ = 0;
  std::map<std::string, Listener> listeners_;
  std::map<std::string, Subscriptions<FlutterOstrelBoolSlot>> updates_;  // Keys are never removed.
};

}  // namespace desk
