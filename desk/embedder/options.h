// The command line of tavo-embed and of tavo embed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "desk/common/command_line.h"

namespace desk {

extern const char kEmbedAbout[];
extern const char kEmbedFooter[];

struct Options {
  std::string plugin;
  std::optional<std::string> description;  // A file; "-": standard input.
  std::optional<std::string> libs_path;
  std::optional<std::string> report;  // A file; "-": standard error.
  std::optional<uint32_t> timeout;    // In seconds.
  std::vector<std::pair<std::string, uint32_t>> declared;
  std::vector<std::string> arguments;  // The arguments behind "--".
  bool offer = false;
  bool render_thread = false;
  std::string help;  // The text to print instead, if help was asked for.
};

// Adds the options to the command; their values are kept in `options`.
void AddOptions(Command& command, Options* options);

// `program` is the name in the help. Throws UsageError.
Options ParseOptions(int count, char** words, const std::string& program);

}  // namespace desk
