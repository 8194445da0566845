// tavo embed: runs a plug-in on a desk. The program calls desk::RunEmbed for it, because the words
// behind "--" are the plug-in's; here are its options for help, completion and manual.

#include <memory>

#include "desk/embedder/options.h"
#include "tools/tavo_commands.h"

namespace tools {

void AddEmbed(desk::CommandLine& program) {
  const auto options = std::make_shared<desk::Options>();
  desk::Command embed = program.AddCommand("embed", desk::kEmbedAbout, desk::kEmbedFooter);
  desk::AddOptions(embed, options.get());
  embed.OnRun([options] {});  // The options live as long as the command.
}

}  // namespace tools
