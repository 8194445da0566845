// The record of the plug-in's actions: each is a map with its name under "action".
//
// Threads: the embedder's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cw/encodable_value.h"

namespace desk {

class Actions {
 public:
  using Observer = std::function<void(const cw::EncodableValue& action)>;

  // Keeps the first actions; the observer receives all of them.
  static constexpr size_t kMaxKept = 65536;

  void Record(const char* action, cw::EncodableMap details = {});
  void Observe(Observer observer) { observer_ = std::move(observer); }
  const std::vector<cw::EncodableValue>& Get() const { return actions_; }

 private:
  std::vector<cw::EncodableValue> actions_;
  Observer observer_;
};

// Adds the value that the plug-in has encoded under the key. If it may not be decoded, adds the
// reason under the key with the suffix "_fault". No bytes are the null value.
void AddDecoded(const char* key, const uint8_t* data, size_t size, cw::EncodableMap* details);

// Numbers and texts from C as values.
cw::EncodableValue ToValue(size_t number);
cw::EncodableValue ToValue(const char* text);  // A null text is the null value.

}  // namespace desk
