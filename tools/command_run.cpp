#include "tools/command_run.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <QFile>
#include <QStringList>

#include "desk/common/quiet_write.h"
#include "desk/common/transfer.h"
#include "desk/runtime_manager/application.h"

namespace tools {
namespace {

using desk::SupervisedProcess;

constexpr size_t kMaxOutput = size_t{32} << 20;  // The largest line of a socket.
constexpr size_t kReadAtOnce = 64 << 10;         // What a pipe holds.
constexpr double kMaxSeconds = 1'000'000;

[[noreturn]] void Fail(const char* what, int error) {
  throw std::runtime_error(std::string(what) + ": " + std::strerror(error));
}

// A file without a name. A pipe would take more than it holds only while the command reads.
Descriptor MakeInput(const std::string& text) {
  Descriptor file(desk::AboveStandard(memfd_create("tavo-parameters", MFD_CLOEXEC)));
  if (file.Get() < 0) Fail("memory for the parameters", errno);
  size_t written = 0;
  const int fault = desk::WriteQuietly(file.Get(), text.data(), text.size(), 0, &written);
  if (fault != 0) Fail("memory for the parameters", fault);
  if (lseek(file.Get(), 0, SEEK_SET) != 0) Fail("the parameters", errno);
  return file;
}

struct Pipe {
  Descriptor read_end;  // Does not block.
  Descriptor write_end;
};

Pipe MakePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) Fail("a pipe", errno);
  Pipe made{Descriptor(desk::AboveStandard(ends[0])), Descriptor(desk::AboveStandard(ends[1]))};
  if (made.write_end.Get() < 0 || fcntl(made.read_end.Get(), F_SETFL, O_NONBLOCK) != 0) {
    Fail("a pipe", errno);
  }
  return made;
}

desk::Application FindProgram(const std::vector<std::string>& words) {
  desk::Application application;
  for (const std::string& word : words) application.command << QFile::decodeName(word.c_str());
  QString cause;
  if (!desk::ResolveProgram(&application.command, &cause)) {
    throw std::runtime_error(cause.toStdString());
  }
  return application;
}

std::string DescribeEnd(int status) {
  if (WIFSIGNALED(status)) return "it was killed by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) == 0) return "";
  return "it ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

CommandRun::CommandRun(const std::vector<std::string>& words, const std::string& input,
                       double seconds, Done done)
    : done_(std::move(done)) {
  timer_.setSingleShot(true);
  try {
    Start(words, input);
    Watch(seconds);
  } catch (const std::runtime_error& error) {
    Finish(error.what());
  }
}

CommandRun::~CommandRun() {
  if (process_) process_->Send(desk::Order::kKill);
}

void CommandRun::Start(const std::vector<std::string>& words, const std::string& input) {
  const desk::Application application = FindProgram(words);
  const Descriptor parameters = MakeInput(input);
  Pipe pipe = MakePipe();
  QString cause;
  process_ =
      SupervisedProcess::Start(application, nullptr, &cause, SupervisedProcess::Leftovers::kEnded,
                               {parameters.Get(), pipe.write_end.Get()});
  if (!process_) throw std::runtime_error(cause.toStdString());
  output_ = std::move(pipe.read_end);
}

void CommandRun::Watch(double seconds) {
  output_notifier_ = std::make_unique<QSocketNotifier>(output_.Get(), QSocketNotifier::Read);
  QObject::connect(output_notifier_.get(), &QSocketNotifier::activated, [this] {
    if (ReadSome() == 0) output_notifier_->setEnabled(false);
  });
  news_notifier_ =
      std::make_unique<QSocketNotifier>(process_->GetDescriptor(), QSocketNotifier::Read);
  QObject::connect(news_notifier_.get(), &QSocketNotifier::activated, [this] { OnNews(); });
  if (!(seconds > 0)) return;
  QObject::connect(&timer_, &QTimer::timeout, [this] { Kill("it has not answered in time"); });
  timer_.start(static_cast<int>(std::ceil(std::min(seconds, kMaxSeconds) * 1000)));
}

// Returns what `read` has returned; 0, too, when this is enough.
ssize_t CommandRun::ReadSome() {
  char bytes[kReadAtOnce];
  const ssize_t size = TEMP_FAILURE_RETRY(read(output_.Get(), bytes, sizeof bytes));
  if (size <= 0) return size;
  outcome_.output.append(bytes, static_cast<size_t>(size));
  if (outcome_.output.size() <= kMaxOutput) return size;
  Kill("its answer is too large");
  return 0;
}

void CommandRun::Kill(const std::string& fault) {
  if (outcome_.fault.empty()) outcome_.fault = fault;
  process_->Send(desk::Order::kKill);
}

void CommandRun::OnNews() {
  using News = SupervisedProcess::News;
  QString cause;
  const News news = process_->ReadNews(&cause);
  if (news == News::kNone || news == News::kRunning) return;
  if (news != News::kEnded) return Finish(cause.toStdString());
  while (ReadSome() > 0) {
  }
  Finish(DescribeEnd(process_->GetStatus()));
}

// The owner may destroy this object in `done`, but not the notifier that has just told.
void CommandRun::Finish(const std::string& fault) {
  if (output_notifier_) output_notifier_->setEnabled(false);
  if (news_notifier_) news_notifier_->setEnabled(false);
  if (outcome_.fault.empty()) outcome_.fault = fault;
  timer_.disconnect();
  QObject::connect(&timer_, &QTimer::timeout, [this] {
    const Done done = std::move(done_);
    done(Outcome(std::move(outcome_)));
  });
  timer_.start(0);
}

}  // namespace tools
