#include "kit/caller.h"

#include "forge/logger.h"

namespace tavo::kit {

void details::ReportBadValue(std::string_view what, const std::string& fault) {
  FORGE_LOG(kWarn) << what << " ignored: " << fault;
}

void CallHandle::Cancel() const {
  const auto core = core_.lock();
  const auto call = call_.lock();
  if (core && call) core->Cancel(call);
}

void CallHandle::Drop() const {
  const auto core = core_.lock();
  const auto call = call_.lock();
  if (core && call) core->Drop(call);
}

ScopedCall& ScopedCall::operator=(ScopedCall&& other) noexcept {
  if (this != &other) std::exchange(call_, std::exchange(other.call_, {})).Drop();
  return *this;
}

std::shared_ptr<Caller> Caller::Create(std::shared_ptr<flrpc::IClient> client,
                                       std::shared_ptr<IClock> clock, const Limits& limits) {
  if (!client || !clock) return nullptr;
  return std::make_shared<Caller>(std::move(client), std::move(clock), limits, PrivateTag{});
}

Caller::Caller(std::shared_ptr<flrpc::IClient> client, std::shared_ptr<IClock> clock,
               const Limits& limits, PrivateTag)
    : client_(std::move(client)),
      core_(details::CallCore::Create(client_, std::move(clock), limits)) {}

Caller::~Caller() { core_->Close(); }

}  // namespace tavo::kit
