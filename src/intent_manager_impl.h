// The service's intents: it asks the platform to open URIs, and offers the caller's intents to
// other applications.
//
// Requests go to the platform one at a time, in their order. The platform's replies carry no
// request id: each reply completes the request in flight. So a reply that comes twice completes the
// next request with its outcome, and a reply that never comes stops the queue. A reply while
// nothing is in flight changes nothing.
//
// Threads: any for the entries, except RegisterIntent, which the platform wants on the event loop's
//          thread. Replies and invocations arrive on the event loop's thread. Completions and
//          platform calls run without the lock, so a completion may open another URI. The
//          platform's callbacks hold the handle, not the service: a late callback finds nothing.
// Errors:  an exception of a completion is an error line, and the queue goes on. If the platform
//          throws, the request has failed, and its completion runs on the thread that sent it.
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

  // Makes the handle unknown. Requests that still wait are dropped: their slots are released, and
  // their callbacks are not called.
  void Close();

  // Null (and an error line) on failure.
  static std::shared_ptr<IntentManagerImpl> Create();

  // The entries of the intent table. The C header has their contracts.
  static ForgeResult HandleOpenUri(_TAVOIntentManagerRef* ref, const char* uri,
                                   TAVOOpenUriSlot* slot);
  static ForgeResult HandleRegisterIntent(_TAVOIntentManagerRef* ref, const char* name,
                                          TAVORegisterIntentSlot* slot);

 private:
  using Completion = std::function<void(bool success)>;

  // A request and the function that receives its outcome.
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
  // Guarded by mutex_. The request in flight stays in front until its reply has come.
  std::list<Reply> queue_;
  bool busy_ = false;     // Guarded by mutex_. The front was sent, and its reply has not come.
  bool sending_ = false;  // Guarded by mutex_. A SendNext runs and will look at the queue again.

  const std::shared_ptr<RuntimeManager::IntentsInvoker> invoker_;
  QMetaObject::Connection connection_;
};

}  // namespace tavo
