#include "tests/support/fake_platform.h"

#include <new>
#include <utility>

namespace test {
namespace {

FakePlatform* current = nullptr;

}  // namespace

FakePlatform::FakePlatform() { current = this; }
FakePlatform::~FakePlatform() { current = nullptr; }
FakePlatform& FakePlatform::Get() { return *current; }

std::vector<std::string> FakePlatform::SentTexts(size_t index) {
  const std::lock_guard lock(mutex);
  std::vector<std::string> texts;
  for (const QJsonObject& message : messagings.at(index)->sent) {
    texts.push_back(message.value(QStringLiteral("data")).toString().toStdString());
  }
  return texts;
}

void FakePlatform::ReplyToIntent(int code) {
  if (invoker) Q_EMIT invoker->replyReceived({}, {code, QStringLiteral("answer")});
}

void FakeTask::Started(const RuntimeManager::Error& error) {
  if (const auto callback = std::exchange(start, nullptr)) callback(error);
}

void FakeTask::Stopped(const RuntimeManager::Error& error) {
  if (const auto callback = std::exchange(stop, nullptr)) callback(error);
}

void FakeMessaging::Receive(const QJsonObject& message) {
  if (object) Q_EMIT object->messageReceived(message);
}

void FakeMessaging::ReceiveText(const QString& text) { Receive({{QStringLiteral("data"), text}}); }

}  // namespace test

namespace RuntimeManager {

struct Task::Private {
  std::shared_ptr<test::FakeTask> fake = std::make_shared<test::FakeTask>();
};

Task::Task(const QString& name, QObject* parent) : QObject(parent), d_(new Private) {
  d_->fake->name = name;
  auto& platform = test::FakePlatform::Get();
  const std::lock_guard lock(platform.mutex);
  platform.tasks.push_back(d_->fake);
}

Task::~Task() { d_->fake->alive = false; }

void Task::withIpcSocket(bool enabled) { d_->fake->ipc_socket = enabled; }

void Task::withArguments(const QStringList& arguments) { d_->fake->arguments = arguments; }

void Task::start(Callback callback) {
  if (test::FakePlatform::Get().fail_start) throw std::bad_alloc();
  d_->fake->start = std::move(callback);
}

void Task::stop(StopFlags flags, Callback callback) {
  d_->fake->stop_flags = flags;
  d_->fake->stop = std::move(callback);
}

QString Task::socketPath() const { return QStringLiteral("/run/") + d_->fake->name; }

struct TaskMessaging::Private {
  std::shared_ptr<test::FakeMessaging> fake = std::make_shared<test::FakeMessaging>();

  explicit Private(TaskMessaging* object) {
    fake->object = object;
    auto& platform = test::FakePlatform::Get();
    const std::lock_guard lock(platform.mutex);
    platform.messagings.push_back(fake);
  }
};

TaskMessaging::TaskMessaging(const QString& socket_path, QObject* parent)
    : QObject(parent), d_(new Private(this)) {
  d_->fake->path = socket_path;
}

TaskMessaging::TaskMessaging(int socket_descriptor, QObject* parent)
    : QObject(parent), d_(new Private(this)) {
  d_->fake->descriptor = socket_descriptor;
}

TaskMessaging::~TaskMessaging() { d_->fake->object = nullptr; }

void TaskMessaging::sendMessage(const QJsonObject& message) {
  const std::lock_guard lock(test::FakePlatform::Get().mutex);
  d_->fake->sent.push_back(message);
}

RuntimeDispatcher* RuntimeDispatcher::instance() {
  static RuntimeDispatcher dispatcher;
  return &dispatcher;
}

int RuntimeDispatcher::localServerSocket() { return 77; }

void RuntimeDispatcher::registerIntent(const QString& name, IntentHandler handler) {
  if (test::FakePlatform::Get().fail_intents) throw std::bad_alloc();
  test::FakePlatform::Get().intents[name] = std::move(handler);
}

struct IntentsInvoker::Private {};

IntentsInvoker::IntentsInvoker(QObject* parent) : QObject(parent) {
  if (test::FakePlatform::Get().fail_intents) throw std::bad_alloc();
  test::FakePlatform::Get().invoker = this;
}

IntentsInvoker::~IntentsInvoker() {
  // A process may end after the test, and a newer invoker may have come.
  if (test::current && test::current->invoker == this) test::current->invoker = nullptr;
}

void IntentsInvoker::invoke(const QString& name, const QJsonObject& options,
                            const QJsonObject& parameters) {
  auto& platform = test::FakePlatform::Get();
  {
    const std::lock_guard lock(platform.mutex);
    platform.invocations.push_back({name, options, parameters});
  }
  if (platform.fail_intents) throw std::bad_alloc();
  if (platform.on_invoke) platform.on_invoke();
}

}  // namespace RuntimeManager
