#include "src/intent_manager_impl.h"

#include <utility>

#include "forge/logger.h"
#include "src/border.h"
#include "src/intent_reply.h"
#include "src/qt_ownership.h"
#include "src/slot_holder.h"

namespace tavo {
namespace {

constexpr char kOpenUri[] = "OpenURI";

// The caller learns that the intent was invoked, but does not receive the parameters. Without a
// callback, and after one that throws, nobody answers: the platform's reply function is destroyed.
void OnIntent(const details::SlotHolder<TAVORegisterIntentSlot>& caller,
              details::IntentReply::Function reply) {
  if (!caller.Has(&TAVORegisterIntentSlot::callback)) return;
  auto slot = details::IntentReply::Open(std::move(reply));
  if (!caller.Call("slot callback", &TAVORegisterIntentSlot::callback, &slot)) {
    slot.release(slot.context);
  }
}

}  // namespace

IntentManagerImpl::IntentManagerImpl(PrivateTag)
    : Object(forge::IDispatcher::CreateEmpty()),
      invoker_(details::MakeQtShared<RuntimeManager::IntentsInvoker>()) {
  connection_ = QObject::connect(
      invoker_.get(), &RuntimeManager::IntentsInvoker::replyReceived,
      [ref = GetRef()](const QJsonObject& reply, const RuntimeManager::Error& error) {
        details::Fence("intent reply handler", [&] {
          if (const auto manager = FromRef(ref)) manager->IntentReplyHandler(reply, error);
        });
      });
}

IntentManagerImpl::~IntentManagerImpl() {
  details::Fence("intent manager destruction", [this] { Close(); });
}

void IntentManagerImpl::Close() {
  Unregister();
  QObject::disconnect(connection_);
  std::list<Reply> dropped;  // Destroyed outside the lock: that releases slots.
  const std::lock_guard lock(mutex_);
  dropped.swap(queue_);
  busy_ = false;  // The request in flight is dropped, too: a later reply completes no request.
}

std::shared_ptr<IntentManagerImpl> IntentManagerImpl::Create() {
  auto manager = details::CreateOrNull([] { return Object::Create(PrivateTag{}); });
  if (!manager) FORGE_LOG(kError) << "Could not create Intent Manager.";
  return manager;
}

ForgeResult IntentManagerImpl::HandleOpenUri(_TAVOIntentManagerRef* ref, const char* uri,
                                             TAVOOpenUriSlot* slot) {
  return details::FenceEntry("OpenUri", FORGE_RESULT_WRONG_STATE, [=]() -> ForgeResult {
    if (!slot || !uri) {
      FORGE_LOG(kError) << "No uri or callback slot provided.";
      return FORGE_RESULT_INVALID_ARGUMENT;
    }
    const auto manager = FromRef(ref);
    if (!manager) {
      FORGE_LOG(kError) << "Intent Manager is not initialized.";
      return FORGE_RESULT_WRONG_STATE;
    }
    {
      const auto caller = std::make_shared<details::SlotHolder<TAVOOpenUriSlot>>(slot);
      caller->HandOver([&] {
        manager->OpenURI(uri, [caller](bool success) {
          caller->Call("slot callback", &TAVOOpenUriSlot::callback, success);
        });
      });
    }  // Only the queue holds the slot now, so the slot is released after its callback.
    // The slot was taken over even if this throws.
    details::Fence("OpenUri", [&] { manager->SendNext(); });
    return FORGE_RESULT_OK;
  });
}

ForgeResult IntentManagerImpl::HandleRegisterIntent(_TAVOIntentManagerRef* ref, const char* name,
                                                    TAVORegisterIntentSlot* slot) {
  return details::FenceEntry("RegisterIntent", FORGE_RESULT_WRONG_STATE, [=]() -> ForgeResult {
    if (!slot || !name) {
      FORGE_LOG(kError) << "No intent name or callback slot provided.";
      return FORGE_RESULT_INVALID_ARGUMENT;
    }
    if (!FromRef(ref)) {
      FORGE_LOG(kError) << "Intent Manager is not initialized.";
      return FORGE_RESULT_WRONG_STATE;
    }
    const auto caller = std::make_shared<details::SlotHolder<TAVORegisterIntentSlot>>(slot);
    caller->HandOver([&] {
      RegisterIntent(name, [caller](const QJsonObject&, details::IntentReply::Function reply) {
        details::Fence("intent handler", [&] { OnIntent(*caller, std::move(reply)); });
      });
    });
    return FORGE_RESULT_OK;
  });
}

// Queues the request; SendNext sends it. An exception means that nothing has changed.
void IntentManagerImpl::OpenURI(const char* uri, Completion completion) {
  std::list<Reply> request;
  request.push_back(
      {kOpenUri, {}, {{QStringLiteral("uri"), QString::fromUtf8(uri)}}, std::move(completion)});
  const std::lock_guard lock(mutex_);
  queue_.splice(queue_.end(), request);
}

// A loop, not a recursion: the platform may answer within the call, request after request.
void IntentManagerImpl::SendNext() {
  std::unique_lock lock(mutex_);
  if (sending_) return;
  sending_ = true;
  while (!busy_ && !queue_.empty()) {
    busy_ = true;
    const Reply& next = queue_.front();
    const std::string intent = next.intent;
    const QJsonObject options = next.options;
    const QJsonObject parameters = next.parameters;
    lock.unlock();
    InvokeIntent(intent, options, parameters);
    lock.lock();
  }
  sending_ = false;
}

void IntentManagerImpl::InvokeIntent(const std::string& intent, const QJsonObject& options,
                                     const QJsonObject& parameters) {
  bool sent = false;
  details::Fence("intent invocation", [&] {
    invoker_->invoke(QString::fromStdString(intent), options, parameters);
    sent = true;
  });
  if (!sent) CompleteOldest(false);
}

void IntentManagerImpl::IntentReplyHandler(const QJsonObject&, const RuntimeManager::Error& error) {
  CompleteOldest(error.code() == 0);
  SendNext();
}

void IntentManagerImpl::CompleteOldest(bool success) {
  std::list<Reply> completed;  // Destroyed outside the lock: that releases slots.
  {
    const std::lock_guard lock(mutex_);
    if (!busy_) return;
    completed.splice(completed.end(), queue_, queue_.begin());
    busy_ = false;
  }
  details::Fence("intent completion", [&] { completed.front().completion(success); });
}

void IntentManagerImpl::RegisterIntent(const char* intent,
                                       RuntimeManager::RuntimeDispatcher::IntentHandler handler) {
  RuntimeManager::RuntimeDispatcher::instance()->registerIntent(QString::fromUtf8(intent),
                                                                std::move(handler));
}

}  // namespace tavo
