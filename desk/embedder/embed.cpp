#include "desk/embedder/embed.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include "desk/common/value_json.h"
#include "desk/embedder/declare_sweep.h"
#include "desk/embedder/description.h"
#include "desk/embedder/embedder.h"
#include "desk/embedder/options.h"
#include "desk/embedder/steps.h"

namespace desk {
namespace {

constexpr int kWrongUsage = 2;
constexpr int kWrongPlugin = 3;
constexpr int kTimedOut = 124;
constexpr int kEndedBySignal = 128;  // Plus the signal's number.

constexpr char kRegister[] = "FlutterOstrelPluginRegister";
using Register = decltype(&FlutterOstrelPluginRegister);

class Failure : public std::runtime_error {
 public:
  Failure(int exit_code, const std::string& what)
      : std::runtime_error(what), exit_code_(exit_code) {}
  int GetExitCode() const { return exit_code_; }

 private:
  const int exit_code_;
};

// An exception of the plug-in's registration.
class PluginException : public Failure {
 public:
  using Failure::Failure;
};

// The plug-in's registration has answered 0.
class Refusal : public Failure {
 public:
  using Failure::Failure;
};

// ---- What the plug-in is shown ----

std::string NameOf(const std::string& file) { return file == "-" ? "standard input" : file; }

std::string ReadFile(const std::string& name) {
  std::ifstream file;
  if (name != "-") file.open(name);
  std::istream& stream = name == "-" ? std::cin : file;
  std::ostringstream text;
  if (stream && stream.peek() != std::istream::traits_type::eof()) text << stream.rdbuf();
  if (!stream.eof() && !stream)
    throw Failure(kWrongUsage, NameOf(name) + ": " + std::strerror(errno));
  return text.str();
}

Description ReadDescription(const std::optional<std::string>& name) {
  if (!name) return {};
  const std::string text = ReadFile(*name);
  try {
    return ParseDescription(text);
  } catch (const std::runtime_error& error) {
    throw Failure(kWrongUsage, NameOf(*name) + ": " + error.what());
  }
}

// The files libtavo.so that are loaded. More than one is a mistake of who placed them.
std::vector<std::filesystem::path> FindLibraries() {
  std::vector<std::filesystem::path> libraries;
  const auto visit = [](dl_phdr_info* info, size_t, void* result) {
    const std::filesystem::path path(info->dlpi_name);
    if (path.filename() == "libtavo.so") {
      static_cast<std::vector<std::filesystem::path>*>(result)->push_back(
          std::filesystem::absolute(path).lexically_normal());
    }
    return 0;
  };
  dl_iterate_phdr(visit, &libraries);
  return libraries;
}

// Adds the options to the description that was read.
Description MakeDescription(const Options& options, Description description) {
  std::optional<std::string> libs_path = options.libs_path;
  if (!libs_path && description.directories.count(kLibraries) == 0) {
    const auto libraries = FindLibraries();
    if (!libraries.empty()) libs_path = libraries.front().parent_path();
  }
  if (libs_path) {
    description.directories[kLibraries] = *libs_path;
    description.arguments.insert(description.arguments.end(), {"--libs-path", *libs_path});
  }
  description.arguments.insert(description.arguments.end(), options.arguments.begin(),
                               options.arguments.end());
  description.render_thread = description.render_thread || options.render_thread;
  for (const auto& declared : options.declared) {
    *FindDeclaredSize(description.declared_sizes, declared.first) = declared.second;
  }
  return description;
}

// ---- The plug-in ----

// Without a slash dlopen would look in the system's directories only.
std::string PathOf(const std::string& plugin) {
  return plugin.find('/') == std::string::npos ? "./" + plugin : plugin;
}

// It stays loaded: its threads may outlive its engine.
Register LoadPlugin(const std::string& plugin) {
  if (access(plugin.c_str(), F_OK) != 0) {
    throw Failure(kWrongPlugin, plugin + ": " + std::strerror(errno));
  }
  void* const library = dlopen(PathOf(plugin).c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (!library) throw Failure(kWrongPlugin, plugin + " cannot be loaded: " + dlerror());
  void* const function = dlsym(library, kRegister);
  if (!function) {
    throw Failure(kWrongPlugin, plugin + ": there is no function \"" + kRegister + "\"");
  }
  return reinterpret_cast<Register>(function);
}

void RegisterPlugin(const std::string& plugin, Register plugin_register, Embedder& embedder) {
  const std::string prefix = plugin + ": its registration ";
  uint32_t answer = 0;
  try {
    answer = plugin_register(embedder.GetContext());
  } catch (const std::exception& error) {
    throw PluginException(kWrongPlugin, prefix + "threw an exception: " + error.what());
  } catch (...) {
    throw PluginException(kWrongPlugin, prefix + "threw an exception of unknown type");
  }
  if (answer == 0) throw Refusal(kWrongPlugin, prefix + "answered 0");
}

// What is registered with one copy is unknown to the other.
void WarnOfCopies(const std::string& plugin, const std::string& program) {
  static bool has_warned = false;
  const auto libraries = FindLibraries();
  if (libraries.size() < 2 || std::exchange(has_warned, true)) return;
  std::cerr << program << ": " << plugin << ": two copies of libtavo.so are loaded, which share "
            << "nothing: " << libraries[0].string() << ", which the plug-in is linked with, and "
            << libraries[1].string() << ", from the directory of --libs-path" << std::endl;
}

// ---- Signals, as events of the loop ----

int signal_pipe[2];

extern "C" void OnSignal(int number) {
  const int before = errno;
  const auto byte = static_cast<unsigned char>(number);
  if (write(signal_pipe[1], &byte, 1) != 1) _exit(kEndedBySignal + number);
  errno = before;
}

// A second signal ends the process: the plug-in may never come back to the loop.
void CatchSignals() {
  if (pipe2(signal_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw Failure(kWrongUsage, std::string("a pipe: ") + std::strerror(errno));
  }
  struct sigaction action {};
  action.sa_handler = OnSignal;
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  for (const int number : {SIGINT, SIGTERM}) sigaction(number, &action, nullptr);
}

// ---- All of it ----

std::ostream& OpenReport(const std::string& name, std::ofstream* file) {
  if (name == "-") return std::cerr;
  file->open(name);
  if (!*file) throw Failure(kWrongUsage, name + ": " + std::strerror(errno));
  return *file;
}

// A process's exit code has eight bits; what is lost must not look like success.
int WithinRange(int exit_code, const std::string& program) {
  constexpr int kHighest = 255;
  if (exit_code >= 0 && exit_code <= kHighest) return exit_code;
  std::cerr << program << ": the plug-in's exit code " << exit_code << " is not within 0 to "
            << kHighest << std::endl;
  return kHighest;
}

int Run(const Options& options, const Description& described, char** argv,
        const std::string& program, Outcome* outcome) {
  // Qt takes words of the command line that it knows: it is shown the name only.
  int count = 1;
  const QCoreApplication application(count, argv);
  if (options.offer) {
    std::cout << ToText(MakeDescription(options, described)) << std::endl;
    if (!std::cout) throw Failure(kWrongUsage, "standard output cannot be written");
    return 0;
  }
  std::ofstream file;
  std::ostream* report = options.report ? &OpenReport(*options.report, &file) : nullptr;
  CatchSignals();
  const Register plugin_register = LoadPlugin(options.plugin);
  const Description description = MakeDescription(options, described);
  Embedder embedder(description);
  StepRunner steps(embedder, description.steps, std::cout);
  embedder.ObserveActions([report, &steps](const cw::EncodableValue& action) {
    if (report) *report << ToText(action, SmallInt64::kPlain) << std::endl;
    steps.OnAction(action);
  });

  QSocketNotifier signals(signal_pipe[0], QSocketNotifier::Read);
  QObject::connect(&signals, &QSocketNotifier::activated, &signals, [&embedder] {
    unsigned char number = 0;
    if (read(signal_pipe[0], &number, 1) == 1) embedder.Exit(kEndedBySignal + number);
  });
  QTimer timer;
  QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
    std::cerr << program << ": the plug-in has not exited in time" << std::endl;
    *outcome = Outcome::kRanOn;
    embedder.Exit(kTimedOut);
  });
  if (options.timeout) timer.start(std::chrono::seconds(*options.timeout));

  try {
    RegisterPlugin(options.plugin, plugin_register, embedder);
  } catch (...) {
    WarnOfCopies(options.plugin, program);  // It may be why.
    throw;
  }
  WarnOfCopies(options.plugin, program);
  steps.Start();
  const int exit_code = embedder.Run();
  WarnOfCopies(options.plugin, program);  // A plug-in may load the library later.
  embedder.DestroyEngine();
  if (report && !*report) throw Failure(kWrongUsage, *options.report + " cannot be written");
  return WithinRange(exit_code, program);
}

// In a process of the sweep. An exception of the plug-in ends it by a signal.
int RunOnce(const Options& options, const Description& described, char** argv,
            const std::string& program, Outcome* outcome) {
  try {
    return Run(options, described, argv, program, outcome);
  } catch (const std::exception& error) {
    std::cerr << program << ": " << error.what() << std::endl;
    if (dynamic_cast<const PluginException*>(&error)) std::abort();
    const bool is_refusal = dynamic_cast<const Refusal*>(&error) != nullptr;
    *outcome = is_refusal ? Outcome::kRefused : Outcome::kNotRun;
    const auto* failure = dynamic_cast<const Failure*>(&error);
    return failure ? failure->GetExitCode() : kWrongUsage;
  }
}

int Sweep(const Options& options, char** argv, const std::string& program) {
  if (options.offer || options.report) {
    throw Failure(kWrongUsage, "--declare-sweep goes with neither --offer nor --report");
  }
  const Description described = ReadDescription(options.description);  // A pipe is read once.
  constexpr uint32_t kDefaultTimeout = 3;
  DeclareSweep sweep{options.timeout.value_or(kDefaultTimeout), {}};
  sweep.run = [&](const Declared& declared, Outcome* outcome) {
    Options once = options;
    once.timeout = sweep.timeout;
    if (!declared.first.empty()) once.declared.push_back(declared);
    return RunOnce(once, described, argv, program, outcome);
  };
  return RunDeclareSweep(sweep, program);
}

}  // namespace

int RunEmbed(int argc, char** argv, const std::string& program) {
  try {
    const Options options = ParseOptions(argc, argv, program);
    std::cout << options.help;
    if (!options.help.empty()) return 0;
    if (options.declare_sweep) return Sweep(options, argv, program);
    Outcome outcome{};
    return Run(options, ReadDescription(options.description), argv, program, &outcome);
  } catch (const Failure& failure) {
    std::cerr << program << ": " << failure.what() << '\n';
    return failure.GetExitCode();
  } catch (const std::exception& error) {
    std::cerr << program << ": " << error.what() << '\n';
    return kWrongUsage;
  }
}

}  // namespace desk
