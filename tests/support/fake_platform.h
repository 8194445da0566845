// The platform's library, played: nothing runs, a test sees each call and decides each answer.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/runtime_manager/intents_invoker.h"
#include "platform/runtime_manager/runtime_dispatcher.h"
#include "platform/runtime_manager/task.h"
#include "platform/runtime_manager/task_messaging.h"

namespace test {

struct FakeTask {
  // The platform's answers. Each takes the callback out, as the platform would.
  void Started(const RuntimeManager::Error& error = {}) {
    if (const auto callback = std::exchange(start, nullptr)) callback(error);
  }
  void Stopped(const RuntimeManager::Error& error = {}) {
    if (const auto callback = std::exchange(stop, nullptr)) callback(error);
  }

  QString name;
  bool ipc_socket = false;
  QStringList arguments;
  RuntimeManager::Task::StopFlags stop_flags;
  RuntimeManager::Task::Callback start;
  RuntimeManager::Task::Callback stop;
  bool alive = true;
};

struct FakeMessaging {
  void Receive(const QJsonObject& message) {
    if (object) Q_EMIT object->messageReceived(message);
  }
  void ReceiveText(const QString& text) { Receive({{QStringLiteral("data"), text}}); }

  QString path;
  int descriptor = -1;
  RuntimeManager::TaskMessaging* object = nullptr;  // Null when it was deleted.
  std::vector<QJsonObject> sent;                    // Guarded by the platform's mutex.
};

struct FakeInvocation {
  QString name;
  QJsonObject options;
  QJsonObject parameters;
};

// One per test; it is the platform while it lives.
struct FakePlatform {
  FakePlatform() { current = this; }
  ~FakePlatform() { current = nullptr; }

  FakeTask& Task(size_t index = 0) { return *tasks.at(index); }
  FakeMessaging& Messaging(size_t index = 0) { return *messagings.at(index); }
  std::vector<std::string> SentTexts();  // The "data" of each message that the first one sent.
  template <typename Items>
  Items Take(Items& items) {
    const std::lock_guard lock(mutex);
    return std::exchange(items, {});
  }
  void ReplyToIntent(int code) {
    if (invoker) Q_EMIT invoker->replyReceived({}, {code, QStringLiteral("answer")});
  }

  static inline FakePlatform* current = nullptr;

  std::mutex mutex;
  std::vector<std::shared_ptr<FakeTask>> tasks;            // In the order of their creation.
  std::vector<std::shared_ptr<FakeMessaging>> messagings;  // Likewise.
  bool fail_start = false;  // Task::start throws, as on a machine without memory.

  RuntimeManager::IntentsInvoker* invoker = nullptr;  // The newest, while it lives.
  std::vector<FakeInvocation> invocations;            // Guarded by mutex.
  std::function<void()> on_invoke;                    // Called within invoke.
  std::map<QString, RuntimeManager::RuntimeDispatcher::IntentHandler> intents;
  bool fail_intents = false;  // Whatever has to do with intents throws.
};

}  // namespace test
