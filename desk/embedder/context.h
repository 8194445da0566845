// The context that a plug-in is registered with.
#pragma once

#include <memory>

#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {

struct Engine;

// Memory of exactly the declared size (of 4 bytes at least), so that a sanitizer detects every read
// beyond it.
class Context {
 public:
  explicit Context(const Engine& engine);
  FlutterOstrelPluginContext* Get() const { return memory_.get(); }

 private:
  struct Free {
    void operator()(FlutterOstrelPluginContext* memory) const;
  };
  std::unique_ptr<FlutterOstrelPluginContext, Free> memory_;
};

}  // namespace desk
