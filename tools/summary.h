// A subcommand in one line.
//
// Threads: any.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tools {

// The first sentence of the description, up to its full stop or colon.
std::string Summarize(const CLI::App& app);

// Help that lists the subcommands with their summaries.
class SummaryFormatter final : public CLI::Formatter {
 public:
  std::string make_subcommand(const CLI::App* subcommand) const override;
};

}  // namespace tools
