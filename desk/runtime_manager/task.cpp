#include "platform/runtime_manager/task.h"

#include <cerrno>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <QFile>

#include "desk/runtime_manager/application.h"
#include "desk/runtime_manager/read_notifier.h"
#include "desk/runtime_manager/supervised_process.h"
#include "desk/runtime_manager/task_report.h"
#include "desk/runtime_manager/task_socket.h"

namespace RuntimeManager {

struct Task::Private {
  Task* const task;
  const QString name;
  bool ipc_socket = false;
  QStringList arguments;
  QString listening_path;  // The socket's path, once the application has taken over.
  QString socket_path;

  std::optional<desk::TaskReport> report;  // Once the task runs.

  std::mutex mutex;
  // Guarded by mutex, because stop runs on any thread.
  std::unique_ptr<desk::SupervisedProcess> process;
  bool is_stopped = false;

  // On the task's thread only.
  bool launched = false;
  Callback on_started;
  std::vector<Callback> on_stopped;
  // A child of the task, so that it moves between threads with it.
  desk::ReadNotifier* notifier = nullptr;

  Private(Task* owner, const QString& task_name) : task(owner), name(task_name) {}

  Error Failure(const QString& cause) const {
    return {EINVAL, QStringLiteral("Application \"%1\" could not be started: %2").arg(name, cause)};
  }

  // Callbacks never run within start or stop.
  void Post(std::function<void()> work) {
    QMetaObject::invokeMethod(task, std::move(work), Qt::QueuedConnection);
  }

  static void Tell(const Callback& callback, const Error& error) {
    if (callback) callback(error);
  }

  bool Launch(QString* error) {
    auto application = desk::FindApplication(name, error);
    if (!application) return false;
    application->command += arguments;
    std::unique_ptr<desk::TaskSocket> socket;
    if (ipc_socket && !(socket = desk::TaskSocket::Listen(name, error))) return false;
    auto started = desk::SupervisedProcess::Start(*application, socket.get(), error);
    if (!started) return false;
    if (socket) listening_path = QFile::decodeName(socket->GetPath());
    Watch(std::move(started));
    return launched = true;
  }

  void Watch(std::unique_ptr<desk::SupervisedProcess> started) {
    notifier = new desk::ReadNotifier(started->GetDescriptor(), task);
    QObject::connect(notifier, &desk::ReadNotifier::activated, task, [this] { OnNews(); });
    const std::lock_guard lock(mutex);
    process = std::move(started);
  }

  void OnNews() {
    using News = desk::SupervisedProcess::News;
    QString cause;
    const News news = process->ReadNews(&cause);
    if (news == News::kRunning) {
      socket_path = listening_path;
      report.emplace(name, socket_path);
      report->OnStart(process->GetProcessId());
      Tell(std::exchange(on_started, nullptr), {});
    } else if (news == News::kFailed) {
      Tell(std::exchange(on_started, nullptr), Failure(cause));
    } else if (news == News::kEnded) {
      if (report) report->OnEnd(process->GetStatus(), IsStopped());
      OnEnded({});
    } else if (news == News::kLost) {
      if (report) report->OnLoss(cause);
      OnEnded({ECHILD, QStringLiteral("Application \"%1\": %2").arg(name, cause)});
    }
  }

  bool IsStopped() {
    const std::lock_guard lock(mutex);
    return is_stopped;
  }

  // The callbacks may delete the task: nothing of it is touched afterwards.
  void OnEnded(const Error& error) {
    notifier->SetEnabled(false);
    std::exchange(notifier, nullptr)->deleteLater();  // It is calling this function.
    {
      const std::lock_guard lock(mutex);
      process.reset();
    }
    const auto stopped = std::exchange(on_stopped, {});
    Tell(std::exchange(on_started, nullptr), error);
    for (const Callback& callback : stopped) Tell(callback, error);
  }
};

Task::Task(const QString& name, QObject* parent) : QObject(parent), d_(new Private(this, name)) {}

Task::~Task() {
  delete d_->notifier;  // Before the descriptor that it watches is closed.
}

void Task::withIpcSocket(bool enabled) { d_->ipc_socket = enabled; }

void Task::withArguments(const QStringList& arguments) { d_->arguments = arguments; }

void Task::start(Callback callback) {
  QString error = QStringLiteral("it was started before");
  if (!d_->launched && d_->Launch(&error)) {
    d_->on_started = std::move(callback);
    return;
  }
  d_->Post([callback = std::move(callback), failure = d_->Failure(error)] {
    Private::Tell(callback, failure);
  });
}

void Task::stop(StopFlags flags, Callback callback) {
  {
    const std::lock_guard lock(d_->mutex);
    if (d_->process) {
      d_->is_stopped = true;
      d_->process->Send(flags & Force ? desk::Order::kKill : desk::Order::kTerminate);
    }
  }
  d_->Post([d = d_.get(), callback = std::move(callback)] {
    if (!d->process) return Private::Tell(callback, {});
    d->on_stopped.push_back(callback);
  });
}

QString Task::socketPath() const { return d_->socket_path; }

}  // namespace RuntimeManager
