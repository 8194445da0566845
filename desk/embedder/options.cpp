#include "desk/embedder/options.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "desk/embedder/description.h"

namespace desk {

const char kEmbedAbout[] =
    "Runs a plug-in: loads it, calls its FlutterOstrelPluginRegister with a context whose tables\n"
    "work, and runs an event loop until the plug-in exits.";
const char kEmbedFooter[] =
    "Words behind -- are more arguments of the entry point.\n"
    "\n"
    "Example: tavo embed libhello_plugin.so --description hello.json\n"
    "\n"
    "Ends with the plug-in's exit code; 2 for a wrong command line or description; 3 when the\n"
    "plug-in cannot be loaded, refuses or throws; 4 when a message that a step expects does not\n"
    "come; 124 at the timeout; 128+n at a SIGINT or SIGTERM.";

namespace {

constexpr uint32_t kMaxSeconds = 1000000;

// STRUCTURE=BYTES.
std::pair<std::string, uint32_t> ParseDeclared(const std::string& text) {
  const size_t equals = std::min(text.find('='), text.size());
  std::string structure = text.substr(0, equals);
  if (GetWholeSize(structure) == 0 || equals == text.size()) {
    throw std::invalid_argument('"' + text +
                                "\" is not STRUCTURE=BYTES with one of context, application, view, "
                                "texture and messenger");
  }
  const std::string number = text.substr(equals + 1);
  uint32_t bytes = 0;
  const char* const end = number.data() + number.size();
  const auto [rest, error] = std::from_chars(number.data(), end, bytes);
  if (error != std::errc() || rest != end || bytes > kMaxDeclared) {
    throw std::invalid_argument(structure + ": \"" + number + "\" is not a number from 0 to " +
                                std::to_string(kMaxDeclared));
  }
  return {std::move(structure), bytes};
}

// The starter of a task appends "--libs-path DIR" to its command, even behind a "--" of its entry.
void TakeLibsPath(Options* options) {
  auto& arguments = options->arguments;
  if (arguments.size() < 2 || arguments[arguments.size() - 2] != "--libs-path") return;
  options->libs_path = arguments.back();
  arguments.resize(arguments.size() - 2);
}

}  // namespace

void AddOptions(Command& command, Options* options) {
  command.AddArgument("PLUGIN.so", &options->plugin, "The plug-in's file");
  command.AddOption("--description", &options->description, "FILE",
                    "What the plug-in is shown, and the steps that are done to it, as JSON; -: "
                    "standard input");
  command.AddOption("--libs-path", &options->libs_path, "DIR",
                    "The directory of the application's libraries; it is also passed on among the "
                    "arguments. By default that of the libtavo.so that the plug-in brings");
  command.AddOption(
      "--declare",
      [options](const std::string& text) { options->declared.push_back(ParseDeclared(text)); },
      "STRUCTURE=BYTES",
      "The size that another embedder declares of the context, or of the application, view, "
      "texture or messenger table");
  command.AddFlag("--offer", &options->offer,
                  "Print the description as it is then, and what is offered by it; no plug-in is "
                  "needed");
  command.AddFlag("--render-thread", &options->render_thread,
                  "Ask for the frames of textures on a thread of their own, as renderers do");
  command.AddOption("--report", &options->report, "FILE",
                    "Write what the plug-in does, one JSON object a line, as it does it; -: "
                    "standard error");
  command
      .AddOption("--timeout", &options->timeout, "SECONDS",
                 "End with 124 when the plug-in has not exited by then")
      .LimitTo(uint32_t{0}, kMaxSeconds);
}

Options ParseOptions(int count, char** words, const std::string& program) {
  std::vector<std::string> own(words + 1, words + count);
  const auto border = std::find(own.begin(), own.end(), "--");
  Options options;
  if (border != own.end()) {
    options.arguments.assign(border + 1, own.end());
    own.erase(border, own.end());
  }
  TakeLibsPath(&options);
  CommandLine line(program, kEmbedAbout, kEmbedFooter);
  AddOptions(line, &options);
  options.help = line.Parse(std::move(own));
  if (options.help.empty() && options.plugin.empty() && !options.offer) {
    throw UsageError("the plug-in's file is missing; see --help");
  }
  return options;
}

}  // namespace desk
