// tavo proxy: a task whose messages are delayed, lost, damaged and so on.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "desk/common/unix_socket.h"
#include "desk/runtime_manager/socket_files.h"
#include "desk/runtime_manager/task_socket.h"
#include "tools/proxy_server.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr char kAbout[] =
    "Starts a task behind a proxy that disturbs its conversations by rules. It is put in front of\n"
    "the tasks of a program by TAVO_DESK_WRAPPER.";
constexpr char kFooter[] =
    "RULE is an amount, for one direction when it begins with from= or to=, and behind it terms\n"
    "that limit it to the messages for which all of them hold, such as method=save (see tavo\n"
    "monitor --help). A share may be left out: 100%. Each rule may be given several\n"
    "times. The handshake is two messages.\n\n"
    "Example:\n"
    "  export TAVO_DESK_WRAPPER='tavo proxy --delay from=200ms --drop method=progress --'\n"
    "  tavo call digest digest '{\"path\": \"/etc/hostname\"}'\n\n"
    "Ends as the task does; with 2 for a wrong command line, and with 3 when the task cannot be\n"
    "started.";

constexpr int kHandedOver = 3;  // The listening socket that a task gets.

struct Options {
  std::vector<ProxyRule> rules;
  std::optional<uint32_t> seed;
  std::vector<std::string> command;
};

[[noreturn]] void Fail(const std::string& what) {
  throw CommandError(kNotStarted, what + ": " + std::strerror(errno));
}

// The rules are applied in the order of their faults, whatever that of the command line is.
ProxyRules MakeRules(std::vector<ProxyRule> rules) {
  if (rules.size() > ProxyRules::kMaxRules) throw CommandError(kWrongUsage, "more than 64 rules");
  const auto duplicates = std::count_if(rules.begin(), rules.end(), [](const ProxyRule& rule) {
    return rule.fault == Fault::kDuplicate;
  });
  if (duplicates > ProxyRules::kMaxDuplicates) {
    throw CommandError(kWrongUsage, "more than 4 rules --duplicate");
  }
  std::stable_sort(rules.begin(), rules.end(), [](const ProxyRule& left, const ProxyRule& right) {
    return left.fault < right.fault;
  });
  return ProxyRules(std::move(rules));
}

// ---- The sockets ----

// Whether this process has been given a listening socket as tasks are.
bool HasSocket() {
  const char* const process = getenv("LISTEN_PID");
  int listens = 0;
  socklen_t size = sizeof listens;
  return process != nullptr && std::to_string(getpid()) == process &&
         getsockopt(kHandedOver, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0;
}

// The path of the socket that was handed over; empty: it has none.
std::string GetSocketPath() {
  sockaddr_un address{};
  socklen_t size = sizeof address - 1;  // The path may have no NUL.
  if (getsockname(kHandedOver, reinterpret_cast<sockaddr*>(&address), &size) != 0) return "";
  return address.sun_path;
}

std::string GetTaskName(const std::string& socket_path) {
  return desk::TaskSocket::GetTask(QString::fromLocal8Bit(socket_path.c_str()))
      .toLocal8Bit()
      .toStdString();
}

// Makes a directory beside the socket that was handed over. If that fails, or the path of a socket
// with this name would be too long there, it makes one in /tmp.
std::string MakeDirectory(const std::string& socket_path, const std::string& name) {
  errno = ENAMETOOLONG;
  for (const std::string& parent :
       {socket_path.substr(0, socket_path.rfind('/') + 1), std::string("/tmp/")}) {
    std::string directory = parent + "tavo-XXXXXX";
    const size_t size = directory.size() + 1 + name.size();
    if (parent.empty() || size >= sizeof sockaddr_un::sun_path) continue;
    if (mkdtemp(directory.data())) return directory;
  }
  Fail("a directory for the socket " + name);
}

// A listening socket for the task alone. Its file is removed at once, so that nothing is left even
// if the proxy is killed; the open path is enough to connect to it. The file has a name as the desk
// gives it, since another proxy may have to find the task's name in it.
struct TaskListener {
  int socket = -1;
  int path = -1;

  TaskListener(const std::string& socket_path, const std::string& task) {
    const std::string name = task + "-0-0";
    const std::string directory = MakeDirectory(socket_path, name);
    const std::string file = directory + '/' + name;
    QString fault;
    socket = desk::ListenAt(QByteArray::fromStdString(file), &fault);
    if (socket >= 0) path = open(file.c_str(), O_PATH | O_CLOEXEC);
    const int cause = errno;
    unlink(file.c_str());
    rmdir(directory.c_str());
    errno = cause;
    if (socket < 0) throw CommandError(kNotStarted, fault.toStdString());
    if (path < 0) Fail(file);
  }
};

// ---- The processes ----

// It ends with the task and stands outside its process group: the group is empty when the task has
// ended, and what ends the group does not keep the last messages of the task from being passed on.
[[noreturn]] void RunServer(const ProxyDescriptors& descriptors, const ProxyContext& context) {
  setsid();
  signal(SIGPIPE, SIG_IGN);  // Standard error may be a pipe that nobody reads any more.
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;  // A connection takes two descriptors.
  setrlimit(RLIMIT_NOFILE, &limit);
  fcntl(descriptors.listener, F_SETFL, fcntl(descriptors.listener, F_GETFL) | O_NONBLOCK);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(null, STDIN_FILENO);
  dup2(null, STDOUT_FILENO);
  try {
    ProxyServer(descriptors, context).Run();
    _exit(0);
  } catch (const std::exception& error) {
    std::cerr << "tavo proxy: " << error.what() << '\n';
    _exit(kFailed);
  }
}

// Starts the server as an orphan: the task expects no child that it has not made.
void StartServer(const ProxyDescriptors& descriptors, const TaskListener& task,
                 const ProxyContext& context) {
  const pid_t helper = fork();
  if (helper == 0) {
    const pid_t server = fork();
    if (server != 0) _exit(server < 0 ? errno : 0);
    close(task.socket);  // With the task's end nobody listens any more.
    RunServer(descriptors, context);
  }
  int status = 0;
  if (helper < 0) Fail("a process");
  while (waitpid(helper, &status, 0) < 0 && errno == EINTR) {
  }
  errno = WEXITSTATUS(status);
  if (errno != 0) Fail("a process");
}

// This process becomes the task: whoever has started it sees the task's own process.
[[noreturn]] void BecomeTask(const std::vector<std::string>& command) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  execvp(words[0], words.data());
  Fail(command[0]);
}

[[noreturn]] void Run(const Options& options) {
  ProxyRules rules = MakeRules(options.rules);
  if (!HasSocket()) {
    std::cerr << "tavo proxy: no listening socket was handed over as descriptor 3, so nothing is "
                 "disturbed\n";
    BecomeTask(options.command);
  }
  const uint32_t seed = options.seed.value_or(std::random_device()());
  if (rules.AreRandom() && !options.seed) std::cerr << "tavo proxy: --seed " << seed << '\n';
  const std::string socket_path = GetSocketPath();
  const std::string name = GetTaskName(socket_path);
  const TaskListener task(socket_path, name);
  const auto self = static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0));
  if (self < 0) Fail("pidfd_open");
  const ProxyContext context{std::move(rules), seed, name, getpid(), {}};
  StartServer({kHandedOver, task.path, self}, task, context);
  if (dup2(task.socket, kHandedOver) < 0) Fail("descriptor 3");
  BecomeTask(options.command);
}

}  // namespace

void AddProxy(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command proxy = program.AddCommand("proxy", kAbout, kFooter);
  for (const FaultOption& option : kFaultOptions) {
    const auto add = [options, &option](const std::string& text) {
      options->rules.push_back(ParseRule(option, text));
    };
    desk::Option rule = proxy.AddOption(option.name, add, "RULE", option.about);
    if (option.unit == Unit::kShare) rule.AllowNoValue();
  }
  proxy.AddOption("--seed", &options->seed, "N",
                  "Make the same random choices as with this number");
  proxy.AddArgument("TASK", &options->command, "The task and its arguments, after --").Require();
  proxy.StopAtArgument();
  proxy.OnRun([options] { Run(*options); });
}

}  // namespace tools
