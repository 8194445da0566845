// tavo intent: invokes an intent, or offers one that a command answers.

#include <cerrno>
#include <deque>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTimer>

#include "desk/common/json_text.h"
#include "platform/runtime_manager/intents_invoker.h"
#include "platform/runtime_manager/runtime_dispatcher.h"
#include "tools/answer_text.h"
#include "tools/common_options.h"
#include "tools/json_argument.h"
#include "tools/printable.h"
#include "tools/progress_line.h"
#include "tools/session.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

using RuntimeManager::IntentsInvoker;
using Reply = RuntimeManager::RuntimeDispatcher::IntentReply;

constexpr char kAbout[] = "Invokes an intent, or offers one that a command answers";
constexpr char kFooter[] =
    "Prints the answer as JSON. With --serve it offers the intent until SIGINT or SIGTERM: it runs "
    "the\n"
    "command for each invocation, gives it the parameters as JSON on standard input, and answers "
    "with\n"
    "the JSON object that it prints. A command that fails is a failure of the intent. No shell is\n"
    "involved.\n\n"
    "Examples:\n"
    "  tavo intent NotesCount '{}'\n"
    "  tavo intent --serve NotesCount -- jq -c '{count: length}'\n\n"
    "Ends with 0; 1 when the intent fails; 2 for a wrong command line; 3 when nobody offers it, or "
    "when\n"
    "it cannot be offered; 4 when no answer comes in time.";
constexpr size_t kMaxCommands = 8;         // Run at a time; further invocations wait.
constexpr size_t kMaxWaiting = 1024;       // Further invocations fail.
constexpr double kMaxTimeout = 1'000'000;  // Seconds.
constexpr size_t kMaxWaitingBytes = size_t{64} << 20;
constexpr int kMaxAnswer = 32 << 20;  // The largest line of a socket.

struct Options {
  std::string name;
  std::string params;                // With --serve: the program of the command,
  std::vector<std::string> command;  // and the whole command.
  bool serve = false;
  double timeout = 25;
};

// Of a JSON text that is an object. nlohmann-json reads it, since Qt's parser leaks the values of
// keys that come again.
QJsonObject ToObject(const desk::Json& json) {
  if (!json.is_object()) throw std::runtime_error("a JSON object is wanted");
  QJsonParseError error{};
  const auto document =
      QJsonDocument::fromJson(QByteArray::fromStdString(desk::ToText(json)), &error);
  if (error.error != QJsonParseError::NoError) {
    throw std::runtime_error(error.errorString().toStdString());
  }
  return document.object();
}

std::string ToLine(const QJsonObject& object) {
  return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

// ---- Invoking ----

QJsonObject ReadParameters(const Options& options) {
  if (options.params.empty()) return {};
  try {
    return ToObject(ReadJsonArgument(options.params));
  } catch (const CommandError&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw CommandError(kWrongUsage, std::string("PARAMS: ") + error.what());
  }
}

void Invoke(const Options& options) {
  const QJsonObject parameters = ReadParameters(options);
  RunSession([&](Session& session) {
    std::optional<std::pair<QJsonObject, RuntimeManager::Error>> outcome;
    IntentsInvoker invoker;
    ProgressLine progress([&] { return "waiting for " + Printable(options.name); });
    QObject::connect(&invoker, &IntentsInvoker::replyReceived,
                     [&outcome](const QJsonObject& reply, const RuntimeManager::Error& error) {
                       outcome.emplace(reply, error);
                     });
    session.LimitTime(options.timeout,
                      "the intent \"" + options.name + "\" was not answered in time");
    invoker.invoke(QString::fromStdString(options.name), {}, parameters);
    session.RunUntil([&] { return outcome.has_value(); });
    progress.Clear();
    const auto& [reply, error] = *outcome;
    const std::string fault = Printable(error.message().toStdString());
    if (error.code() == ENOENT) throw CommandError(kNotStarted, fault);
    if (error) throw ErrorAnswer("error " + std::to_string(error.code()) + ": " + fault);
    session.Print(ToLine(reply));
  });
}

// ---- Serving ----

// The commands that answer invocations. A reply that is dropped makes the intent fail.
class Commands {
 public:
  explicit Commands(const Options& options) : options_(options) {}

  void Answer(const QJsonObject& parameters, Reply reply) {
    std::string input = ToLine(parameters) + '\n';
    if (waiting_.size() >= kMaxWaiting || waiting_bytes_ + input.size() > kMaxWaitingBytes) {
      return Tell("too many invocations wait");
    }
    waiting_bytes_ += input.size();
    waiting_.push_back({std::move(input), std::move(reply)});
    StartNext();
  }

 private:
  struct Invocation {
    std::string input;
    Reply reply;
  };
  // One that has ended may be called from its own signal; one that runs is killed.
  struct Dispose {
    void operator()(QProcess* process) const {
      process->disconnect();
      process->kill();
      process->waitForFinished();
      process->deleteLater();
    }
  };
  struct Command {
    std::unique_ptr<QProcess, Dispose> process;
    Reply reply;
    QByteArray output;
  };

  void StartNext() {
    while (!waiting_.empty() && running_.size() < kMaxCommands) {
      Invocation next = std::move(waiting_.front());
      waiting_.pop_front();
      waiting_bytes_ -= next.input.size();
      Start(std::move(next));
    }
  }

  void Start(Invocation invocation) {
    auto* const process = new QProcess;
    Command& command = running_[process];
    command.process.reset(process);
    command.reply = std::move(invocation.reply);
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(process, &QProcess::readyReadStandardOutput, [&command] { Read(command); });
    QObject::connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished),
                     [this, process] { Finish(process); });
    QObject::connect(process, &QProcess::errorOccurred,
                     [this, process](QProcess::ProcessError error) {
                       if (error == QProcess::FailedToStart) Finish(process);
                     });
    QStringList words;
    for (const std::string& word : options_.command) words << QFile::decodeName(word.c_str());
    process->start(words.takeFirst(), words);
    process->write(QByteArray::fromStdString(invocation.input));
    process->closeWriteChannel();
    if (options_.timeout > 0) {
      QTimer::singleShot(static_cast<int>(std::min(options_.timeout, kMaxTimeout) * 1000), process,
                         [process] { process->kill(); });
    }
  }

  static void Read(Command& command) {
    command.output += command.process->readAllStandardOutput();
    if (command.output.size() > kMaxAnswer) command.process->kill();
  }

  // The command has ended, or was not started.
  void Finish(QProcess* process) {
    const auto node = running_.extract(process);
    if (!node) return;
    const std::string fault = AnswerWith(node.mapped());
    if (!fault.empty()) Tell(options_.command[0] + ": " + fault);
    StartNext();
  }

  // Returns why there is no answer, or an empty text.
  static std::string AnswerWith(Command& command) {
    const QProcess& process = *command.process;
    if (process.error() == QProcess::FailedToStart) return process.errorString().toStdString();
    Read(command);
    if (command.output.size() > kMaxAnswer) return "its answer is too large";
    if (process.exitStatus() != QProcess::NormalExit) return "it was killed by a signal";
    if (process.exitCode() != 0)
      return "it ended with status " + std::to_string(process.exitCode());
    try {
      command.reply(ToObject(desk::ParseJson(command.output.toStdString())));
    } catch (const std::runtime_error& error) {
      return std::string("its answer: ") + error.what();
    }
    return "";
  }

  void Tell(const std::string& fault) const {
    Session::PrintError("tavo intent: \"" + options_.name + "\" fails: " + Printable(fault));
  }

  const Options& options_;
  std::deque<Invocation> waiting_;
  size_t waiting_bytes_ = 0;
  std::map<const QProcess*, Command> running_;
};

void Serve(const Options& options) {
  RunSession([&](Session& session) {
    const auto commands = std::make_shared<Commands>(options);
    const auto token = std::make_shared<const bool>();
    RuntimeManager::RuntimeDispatcher::instance()->registerIntent(
        QString::fromStdString(options.name), [token, weak = std::weak_ptr<Commands>(commands)](
                                                  const QJsonObject& parameters, Reply reply) {
          if (const auto served = weak.lock()) served->Answer(parameters, std::move(reply));
        });
    // A handler that is refused is destroyed, after a line that tells the cause.
    if (token.use_count() == 1) {
      throw CommandError(kNotStarted, "the intent \"" + options.name + "\" cannot be offered");
    }
    Session::PrintError("tavo intent: \"" + Printable(options.name) + "\" is offered");
    session.RunUntil([] { return false; });
  });
}

// `extras` is what follows the first word of PARAMS; a mark "--" in front of that word is a part of
// it.
void Run(Options options, std::vector<std::string> extras) {
  if (!options.serve) {
    const bool is_marked = !extras.empty() && extras.front() == "--";
    if (extras.size() > (is_marked ? 1 : 0)) {
      throw CommandError(kWrongUsage, '"' + extras.back() + "\" is not expected");
    }
    return Invoke(options);
  }
  if (!extras.empty() && extras.front() == "--") extras.erase(extras.begin());
  if (options.params.empty()) {
    throw CommandError(kWrongUsage, "no command given: tavo intent --serve NAME -- COMMAND...");
  }
  options.command = std::move(extras);
  options.command.insert(options.command.begin(), options.params);
  Serve(options);
}

}  // namespace

void AddIntent(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command intent = program.AddCommand("intent", kAbout, kFooter);
  intent.AddArgument("NAME", &options->name, "The name of the intent").Require();
  intent.AddArgument("PARAMS", &options->params,
                     std::string(kJsonHelp) + ". With --serve: the command, behind --");
  intent.AddFlag("--serve", &options->serve, "Offer the intent, and answer by the command");
  AddTimeout(intent, &options->timeout,
             "How long to wait for the answer, or for the command to answer");
  intent.OnRunWithRest([options](auto rest) { Run(*options, std::move(rest)); });
}

}  // namespace tools
