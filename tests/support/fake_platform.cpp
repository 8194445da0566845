#include "tests/support/fake_platform.h"

#include <new>

std::vector<std::string> test::FakePlatform::SentTexts() {
  const std::lock_guard lock(mutex);
  std::vector<std::string> texts;
  for (const QJsonObject& message : Messaging().sent) {
    texts.push_back(message.value(QStringLiteral("data")).toString().toStdString());
  }
  return texts;
}

namespace RuntimeManager {

static test::FakePlatform*& platform = test::FakePlatform::current;

struct Task::Private {
  const std::shared_ptr<test::FakeTask> fake = std::make_shared<test::FakeTask>();
};

Task::Task(const QString& name, QObject* parent) : QObject(parent), d_(new Private) {
  d_->fake->name = name;
  platform->tasks.push_back(d_->fake);
}
Task::~Task() { d_->fake->alive = false; }

void Task::withIpcSocket(bool enabled) { d_->fake->ipc_socket = enabled; }
void Task::withArguments(const QStringList& arguments) { d_->fake->arguments = arguments; }
void Task::start(Callback callback) {
  if (platform->fail_start) throw std::bad_alloc();
  d_->fake->start = std::move(callback);
}
void Task::stop(StopFlags flags, Callback callback) {
  d_->fake->stop_flags = flags;
  d_->fake->stop = std::move(callback);
}
QString Task::socketPath() const { return QStringLiteral("/run/") + d_->fake->name; }

struct TaskMessaging::Private {
  Private(TaskMessaging* object, const QString& path, int descriptor) {
    *fake = {path, descriptor, object, {}};
    platform->messagings.push_back(fake);
  }
  const std::shared_ptr<test::FakeMessaging> fake = std::make_shared<test::FakeMessaging>();
};

TaskMessaging::TaskMessaging(const QString& socket_path, QObject* parent)
    : QObject(parent), d_(new Private(this, socket_path, -1)) {}
TaskMessaging::TaskMessaging(int socket_descriptor, QObject* parent)
    : QObject(parent), d_(new Private(this, {}, socket_descriptor)) {}
TaskMessaging::~TaskMessaging() { d_->fake->object = nullptr; }

void TaskMessaging::sendMessage(const QJsonObject& message) {
  const std::lock_guard lock(platform->mutex);
  d_->fake->sent.push_back(message);
}

RuntimeDispatcher* RuntimeDispatcher::instance() {
  static RuntimeDispatcher dispatcher;
  return &dispatcher;
}
int RuntimeDispatcher::localServerSocket() { return 77; }
void RuntimeDispatcher::registerIntent(const QString& name, IntentHandler handler) {
  if (platform->fail_intents) throw std::bad_alloc();
  platform->intents[name] = std::move(handler);
}

struct IntentsInvoker::Private {};

IntentsInvoker::IntentsInvoker(QObject* parent) : QObject(parent) {
  if (platform->fail_intents) throw std::bad_alloc();
  platform->invoker = this;
}
IntentsInvoker::~IntentsInvoker() {
  // A process may end after the test, and a newer invoker may have come.
  if (platform && platform->invoker == this) platform->invoker = nullptr;
}
void IntentsInvoker::invoke(const QString& name, const QJsonObject& options,
                            const QJsonObject& parameters) {
  {
    const std::lock_guard lock(platform->mutex);
    platform->invocations.push_back({name, options, parameters});
  }
  if (platform->on_invoke) platform->on_invoke();
}

}  // namespace RuntimeManager
