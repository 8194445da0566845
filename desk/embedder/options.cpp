#include "desk/embedder/options.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <stdexcept>

#include "desk/embedder/description.h"

namespace desk {

const char kUsage[] =
    "usage: tavo-embed PLUGIN.so [OPTION...] [-- ARGUMENT...]\n"
    "\n"
    "Loads a plug-in, calls its FlutterOstrelPluginRegister with a context whose tables work, and\n"
    "runs an event loop until the plug-in exits. Options may come before and after the plug-in.\n"
    "\n"
    "  --description FILE        what the plug-in is shown, and the steps that are done to it, as\n"
    "                            JSON; -: standard input\n"
    "  --libs-path DIR           the directory of kind 1; also passed on among the arguments\n"
    "  --declare STRUCTURE=BYTES the size that another embedder declares of the context, or of\n"
    "                            the application, view, texture or messenger table\n"
    "  --offer                   print the description as it is then, and what is offered by it;\n"
    "                            without a plug-in\n"
    "  --report FILE             write what the plug-in does, one JSON object a line, as it does\n"
    "                            it; -: standard error\n"
    "  --timeout SECONDS         end with 124 when the plug-in has not exited by then\n"
    "  --help                    print this\n"
    "  -- ARGUMENT...            more arguments of the entry point\n"
    "\n"
    "Ends with the plug-in's exit code; 2 for a wrong command line or description; 3 when the\n"
    "plug-in cannot be loaded or refuses; 124 at the timeout; 128+n at a SIGINT or SIGTERM.\n";

namespace {

uint32_t ParseNumber(const std::string& option, const std::string& text, uint32_t most) {
  uint32_t number = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (text.empty() || result.ec != std::errc() || result.ptr != end || number > most) {
    throw std::runtime_error(option + ": \"" + text + "\" is no number from 0 to " +
                             std::to_string(most));
  }
  return number;
}

void SetDescription(Options* it, const std::string& value) { it->description = value; }
void SetLibsPath(Options* it, const std::string& value) { it->libs_path = value; }
void SetReport(Options* it, const std::string& value) { it->report = value; }
void SetTimeout(Options* it, const std::string& value) {
  it->timeout = ParseNumber("--timeout", value, 1000000);
}
void AddDeclared(Options* it, const std::string& value) {
  const size_t equals = std::min(value.find('='), value.size());
  const std::string structure = value.substr(0, equals);
  if (GetWholeSize(structure) == 0 || equals == value.size()) {
    throw std::runtime_error("--declare: \"" + value +
                             "\" is no STRUCTURE=BYTES with context, application, view, texture "
                             "or messenger");
  }
  it->declared.emplace_back(
      structure, ParseNumber("--declare " + structure, value.substr(equals + 1), kMostDeclared));
}

struct ValueOption {
  const char* name;
  void (*set)(Options* it, const std::string& value);
};
constexpr ValueOption kValueOptions[] = {
    {"--description", SetDescription}, {"--libs-path", SetLibsPath}, {"--report", SetReport},
    {"--timeout", SetTimeout},         {"--declare", AddDeclared},
};

struct Flag {
  const char* name;
  bool Options::*flag;
};
constexpr Flag kFlags[] = {{"--offer", &Options::offer}, {"--help", &Options::help}};

// Takes the word, and the next where it is the option's value; returns how many.
size_t TakeWord(const std::vector<std::string>& words, size_t at, Options* options) {
  const std::string& word = words[at];
  for (const Flag& flag : kFlags) {
    if (word == flag.name) return options->*flag.flag = true, 1;
  }
  for (const ValueOption& option : kValueOptions) {
    const size_t length = std::strlen(option.name);
    if (word.compare(0, length, option.name) != 0) continue;
    if (word.size() > length && word[length] == '=') {
      return option.set(options, word.substr(length + 1)), 1;
    }
    if (word.size() > length) continue;
    if (at + 1 == words.size()) throw std::runtime_error(word + ": its value is missing");
    return option.set(options, words[at + 1]), 2;
  }
  if (word.size() > 1 && word[0] == '-')
    throw std::runtime_error(word + ": there is no such option");
  if (!options->plugin.empty()) throw std::runtime_error(word + ": there is a plug-in already");
  if (word.empty()) throw std::runtime_error("the plug-in's name is empty");
  options->plugin = word;
  return 1;
}

}  // namespace

Options ParseOptions(int count, char** words) {
  std::vector<std::string> own(words + 1, words + count);
  const auto border = std::find(own.begin(), own.end(), "--");
  Options options;
  if (border != own.end()) {
    options.arguments.assign(border + 1, own.end());
    own.erase(border, own.end());
  }
  for (size_t at = 0; at < own.size() && !options.help;) at += TakeWord(own, at, &options);
  if (options.plugin.empty() && !options.offer && !options.help) {
    throw std::runtime_error("which plug-in? --help tells more");
  }
  return options;
}

}  // namespace desk
