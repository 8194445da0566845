// tavo embed: runs a plug-in on a desk. The program calls desk::RunEmbed for it, because the words
// behind "--" are the plug-in's; here are its options for help, completion and manual.

#include <memory>

#include "desk/embedder/options.h"
#include "tools/tavo_commands.h"

namespace tools {

void AddEmbed(CLI::App& app) {
  const auto options = std::make_shared<desk::Options>();
  CLI::App* const embed = app.add_subcommand("embed");
  desk::AddOptions(*embed, *options);
  embed->callback([options] {});  // The options live as long as the command.
}

}  // namespace tools
