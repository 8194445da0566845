#include "forge/dispatcher.h"

#include "forge/logger.h"

namespace forge {
namespace {

class EmptyDispatcher final : public IDispatcher {
 public:
  void Invoke(const std::function<void()>&, uint32_t) override {
    FORGE_LOG(kWarn) << "EmptyDispatcher::Invoke(): no-op method invoked.";
  }
};

}  // namespace

IDispatcher::~IDispatcher() = default;

std::shared_ptr<IDispatcher> IDispatcher::CreateEmpty() {
  return std::make_shared<EmptyDispatcher>();
}

}  // namespace forge
