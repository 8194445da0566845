#include "desk/embedder/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <stdexcept>

#include "desk/embedder/description.h"

namespace desk {
namespace {

constexpr char kAbout[] =
    "Runs a plug-in: loads it, calls its FlutterOstrelPluginRegister with a context whose tables\n"
    "work, and runs an event loop until the plug-in exits.";
constexpr char kFooter[] =
    "Words behind -- are more arguments of the entry point.\n"
    "\n"
    "Example: tavo embed libhello_plugin.so --description hello.json\n"
    "\n"
    "Ends with the plug-in's exit code; 2 for a wrong command line or description; 3 when the\n"
    "plug-in cannot be loaded, refuses or throws; 4 when a message that a step expects does not\n"
    "come; 124 at the timeout; 128+n at a SIGINT or SIGTERM.";
constexpr uint32_t kMaxSeconds = 1000000;

// STRUCTURE=BYTES.
std::pair<std::string, uint32_t> ParseDeclared(const std::string& text) {
  const size_t equals = std::min(text.find('='), text.size());
  std::string structure = text.substr(0, equals);
  uint32_t bytes = 0;
  if (GetWholeSize(structure) == 0 || equals == text.size()) {
    throw CLI::ValidationError("--declare", "\"" + text +
                                                "\" is not STRUCTURE=BYTES with one of context, "
                                                "application, view, texture and messenger");
  }
  if (!CLI::detail::lexical_cast(text.substr(equals + 1), bytes) || bytes > kMaxDeclared) {
    throw CLI::ValidationError("--declare " + structure, "\"" + text.substr(equals + 1) +
                                                             "\" is not a number from 0 to " +
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

void AddOptions(CLI::App& app, Options& options) {
  app.description(kAbout);
  app.footer(kFooter);
  app.add_option("PLUGIN.so", options.plugin, "The plug-in's file");
  app.add_option("--description", options.description,
                 "What the plug-in is shown, and the steps that are done to it, as JSON; -: "
                 "standard input")
      ->option_text("FILE");
  app.add_option("--libs-path", options.libs_path,
                 "The directory of the application's libraries; it is also passed on among the "
                 "arguments. By default that of the libtavo.so that the plug-in brings")
      ->option_text("DIR");
  app.add_option_function<std::vector<std::string>>(
         "--declare",
         [&options](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) options.declared.push_back(ParseDeclared(text));
         },
         "The size that another embedder declares of the context, or of the application, view, "
         "texture or messenger table")
      ->option_text("STRUCTURE=BYTES")
      ->allow_extra_args(false);
  app.add_flag(
      "--declare-sweep", options.declare_sweep,
      "Run the plug-in with each size of each of these structures, two runs at a time, and "
      "print at which sizes it crashes or hangs");
  app.add_flag("--offer", options.offer,
               "Print the description as it is then, and what is offered by it; no plug-in is "
               "needed");
  app.add_flag("--render-thread", options.render_thread,
               "Ask for the frames of textures on a thread of their own, as renderers do");
  app.add_option("--report", options.report,
                 "Write what the plug-in does, one JSON object a line, as it does it; -: standard "
                 "error")
      ->option_text("FILE");
  app.add_option("--timeout", options.timeout,
                 "End with 124 when the plug-in has not exited by then")
      ->option_text("SECONDS")
      ->check(CLI::Range(kMaxSeconds));
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
  CLI::App app("", program);
  AddOptions(app, options);
  std::reverse(own.begin(), own.end());  // In the form that the parser expects.
  try {
    app.parse(own);
  } catch (const CLI::CallForHelp&) {
    options.help = app.help();
    return options;
  } catch (const CLI::ParseError& error) {
    throw std::runtime_error(error.what());
  }
  if (options.plugin.empty() && !options.offer) {
    throw std::runtime_error("the plug-in's file is missing; see --help");
  }
  return options;
}

}  // namespace desk
