// What the plug-in did: a map each, with its name under "action".
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

  // The first ones are kept; the observer is told all.
  static constexpr size_t kMostKept = 65536;

  void Record(const char* action, cw::EncodableMap details = {});
  void Observe(Observer observer) { observer_ = std::move(observer); }
  const std::vector<cw::EncodableValue>& Get() const { return actions_; }

 private:
  std::vector<cw::EncodableValue> actions_;
  Observer observer_;
};

// The value that the plug-in encoded, under the key; where it may not be decoded, why, under the
// key with "_fault" behind it. No bytes are null.
void AddDecoded(const char* key, const uint8_t* data, size_t size, cw::EncodableMap* details);

// Numbers and texts from C as values.
cw::EncodableValue ToValue(size_t number);
cw::EncodableValue ToValue(const char* text);  // Null: null.

}  // namespace desk
