#include "kit/pending_call.h"

#include "forge/fence.h"

namespace tavo::kit::details {

void PendingCall::Run() noexcept {
  if (has_ended_.exchange(true)) return;
  forge::Fence("callback of a call", [this] { CallBack(); });
}

void PendingCall::Discard() noexcept {
  if (!has_ended_.exchange(true)) DropCallback();
}

void PendingCall::RunProgress(const cw::EncodableValue& value) const noexcept {
  if (has_ended_) return;
  forge::Fence("progress of a call", [this, &value] { options_.GetProgressFunction()(value); });
}

std::shared_ptr<forge::IDispatcher> PendingCall::TakeExecutor() {
  auto executor = options_.GetExecutor();
  options_.Executor(nullptr);
  return executor;
}

}  // namespace tavo::kit::details
