// The service's intents: asks the platform to open URIs, and offers the caller's intents to other
// applications.
//
// Requests go to the platform one at a time, in their order. The platform's replies carry no
// request's id: each completes the oldest request that was sent. So a reply that comes twice
// completes the next request with its outcome, and one that never comes stops the queue. A reply
// while nothing is in flight changes nothing.
//
// Threads: the entries on any (RegisterIntent where the platform wants it, the event loop's);
//          replies and invocations arrive on the event loop's thread. Completions and platform
//          calls run without the lock, so a completion may open another URI. The platform's
//          callbacks hold the handle, not the service: one that comes late finds nothing.
// Errors:  what a completion throws is an error line, and the queue goes on. A platform that throws
//          has failed the request, whose completion then runs on the thread that sent it.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include <QJsonObject>
#include <QMetaObject>

#include "forge/object.h"
#include "platform/runtime_manager/intents_invoker.h"
#include "platform/runtime_manager/runtime_dispatcher.h"
#include "src/tavo_capi.h"

namespace tavo {

class IntentManagerImpl final : public forge::Object<IntentManagerImpl, _TAVOIntentManagerRef*> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  explicit IntentManagerImpl(PrivateTag);

  ~IntentManagerImpl() override;

  // The handle leads nowhere from now on. Requests that still wait are dropped: their slots are
  // released, their callbacks not called.
  void Close();

  // Null (and an error line) on failure.
  static std::shared_ptr<IntentManagerImpl> Create();

  // The entries of the intent table; their contract is the C header's.
  static ForgeResult HandleOpenUri(_TAVOIntentManagerRef* ref, const char* uri,
                                   TAVOOpenUriSlot* slot);
  static ForgeResult HandleRegisterIntent(_TAVOIntentManagerRef* ref, const char* name,
                                          TAVORegisterIntentSlot* slot);

 private:
  using Completion = std::function<void(bool success)>;

  // A request, and who waits for its reply.
  struct Reply {
    std::string intent;
    QJsonObject options;
    QJsonObject parameters;
    Completion completion;
  };

  void OpenURI(const char* uri, Completion completion);
  void SendNext();
  void InvokeIntent(const std::string& intent, const QJsonObject& options,
                    const QJsonObject& parameters);
  void IntentReplyHandler(const QJsonObject& reply, const RuntimeManager::Error& error);
  void CompleteOldest(bool success);
  static void RegisterIntent(const char* intent,
                             RuntimeManager::RuntimeDispatcher::IntentHandler handler);

  std::mutex mutex_;
  // Guarded by mutex_. The request that was sent stays in front until its reply has come.
  std::list<Reply> queue_;
  bool busy_ = false;     // The front was sent, its reply has not come.
  bool sending_ = false;  // A SendNext runs, and will look at the queue again.

  const std::shared_ptr<RuntimeManager::IntentsInvoker> invoker_;
  QMetaObject::Connection connection_;
};

}  // namespace tavo
