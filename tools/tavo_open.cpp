// tavo open: asks the system to open a URI, as a plug-in does.

#include <memory>
#include <optional>
#include <string>

#include "tools/common_options.h"
#include "tools/session.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr char kAbout[] = "Opens a URI as a plug-in does";
constexpr char kFooter[] =
    "An application that offers the intent OpenURI opens it, otherwise the desk.\n\n"
    "Example:\n"
    "  tavo open https://example.org\n\n"
    "Ends with 0; 1 when the URI was not opened; 2 for a wrong command line; 4 when nobody answers "
    "in\n"
    "time.";

struct Options {
  std::string uri;
  double timeout = 25;
};

void Run(const Options& options) {
  RunSession([&](Session& session) {
    const auto is_opened = std::make_shared<std::optional<bool>>();
    const auto intents = session.GetManager().GetIntentManager();
    if (!intents) throw CommandError(kNotStarted, "there is no service of intents");
    intents->OpenUri(options.uri, [is_opened](bool success) { *is_opened = success; });
    session.LimitTime(options.timeout, options.uri + ": nobody has answered in time");
    session.RunUntil([&] { return is_opened->has_value(); });
    if (!**is_opened) throw CommandError(kFailed, options.uri + " was not opened");
  });
}

}  // namespace

void AddOpen(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command open = program.AddCommand("open", kAbout, kFooter);
  open.AddArgument("URI", &options->uri, "What is opened").Require();
  AddTimeout(open, &options->timeout, "How long to wait for the outcome");
  open.OnRun([options] { Run(*options); });
}

}  // namespace tools
