#include "forge/object.h"

namespace forge::details {

std::atomic<uint32_t> CounterClient::counter_{0};

CounterClient::~CounterClient() = default;

uint32_t CounterClient::GenerateId() { return ++counter_; }

uint32_t CounterClient::DrawId() {
  uint32_t id = GenerateId();
  while (id == 0) id = GenerateId();
  return id;
}

ObjectImpl::ObjectImpl(const std::shared_ptr<IDispatcher>& dispatcher) : dispatcher_(dispatcher) {}

ObjectImpl::~ObjectImpl() { ResetDispatcher(); }

void ObjectImpl::Invoke(const std::function<void()>& task, uint32_t flags) const {
  std::shared_lock lock(mutex_);
  const std::shared_ptr<IDispatcher> dispatcher = dispatcher_;
  lock.unlock();
  if (dispatcher) dispatcher->Invoke(task, flags);
}

void ObjectImpl::ResetDispatcher() {
  const std::unique_lock lock(mutex_);
  dispatcher_.reset();
}

}  // namespace forge::details
