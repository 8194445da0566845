// The command line of the plug-in: the entry point's arguments behind "--libs-path DIR".
//
// Threads: any.
// Errors:  std::runtime_error with a sentence for a command line that makes no sense.
#pragma once

#include <chrono>
#include <set>
#include <string>
#include <vector>

namespace digest {

struct Options {
  std::string help;               // The text to print instead, when it is asked for.
  std::string uri;                // The URI to open at the end; empty: none.
  std::set<std::string> skipped;  // Paths, as they are printed.
  std::chrono::seconds timeout{60};
  std::vector<std::string> paths;  // Never empty.
};

Options ParseOptions(const std::vector<std::string>& arguments);

}  // namespace digest
