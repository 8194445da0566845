// tavo generate: completions and manual pages, made of the program's own command line. The build
// calls it; people do not see it in the help.

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "src/tavo_version.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

namespace fs = std::filesystem;

using Option = desk::OptionDescription;
using Command = desk::CommandDescription;

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// ---- bash ----

std::string OptionWords(const Command& command) {
  std::string words;
  for (const Option& option : command.options) {
    if (option.is_argument) continue;
    for (const std::string& name : option.names) words += (words.empty() ? "" : " ") + name;
  }
  return words;
}

std::string WriteBash(const std::vector<Command>& commands) {
  std::ostringstream text;
  std::string names;
  for (size_t i = 1; i < commands.size(); ++i) names += commands[i].name + ' ';
  text << "# Completion of the command line of tavo, made by `tavo generate`.\n"
          "_tavo() {\n"
          "  local current=${COMP_WORDS[COMP_CWORD]} words=\n"
          "  case $COMP_CWORD:${COMP_WORDS[1]} in\n"
       << "    1:*) words='" << names << OptionWords(commands[0]) << "' ;;\n";
  for (size_t i = 1; i < commands.size(); ++i) {
    text << "    *:" << commands[i].name << ") words='" << OptionWords(commands[i]) << "' ;;\n";
  }
  text << "  esac\n"
          "  COMPREPLY=()\n"
          "  [[ $COMP_CWORD -gt 1 && $current != -* ]] ||\n"
          "    COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
          "}\n"
          "complete -o default -F _tavo tavo  # Without a match: files.\n";
  return text.str();
}

// ---- zsh ----

// A word of the arguments of _arguments, between single quotes.
std::string EscapeForZsh(std::string text) {
  for (const char* special : {"\\", "[", "]", ":"}) {
    text = Replace(text, special, std::string("\\") + special);
  }
  return Replace(Replace(text, "'", "'\\''"), "\n", " ");
}

void WriteZshOption(const Option& option, std::ostream& text) {
  const std::string value = EscapeForZsh(option.value);
  if (option.is_argument) {
    const char* const once = option.is_required ? ":" : "::";
    text << " '" << (option.is_repeated ? "*:" : once) << EscapeForZsh(option.names[0])
         << ":_files'";
    return;
  }
  for (const std::string& name : option.names) {
    text << " \\\n      '" << name << '[' << EscapeForZsh(option.about) << ']';
    if (!value.empty()) text << ':' << value << ":_files";
    text << '\'';
  }
}

std::string WriteZsh(const std::vector<Command>& commands) {
  std::ostringstream text;
  text << "#compdef tavo\n"
          "# Completion of the command line of tavo, made by `tavo generate`.\n"
          "_tavo() {\n"
          "  if (( CURRENT == 2 )); then\n"
          "    local -a commands=(\n";
  for (size_t i = 1; i < commands.size(); ++i) {
    text << "      '" << commands[i].name << ':' << EscapeForZsh(commands[i].summary) << "'\n";
  }
  text << "    )\n"
          "    _describe command commands\n"
          "    compadd -- "
       << OptionWords(commands[0])
       << "\n"
          "    return\n"
          "  fi\n"
          "  local command=$words[2]\n"
          "  shift words\n"
          "  (( CURRENT-- ))\n"
          "  case $command in\n";
  for (size_t i = 1; i < commands.size(); ++i) {
    text << "    " << commands[i].name << ") _arguments";
    for (const Option& option : commands[i].options) WriteZshOption(option, text);
    text << " ;;\n";
  }
  text << "  esac\n}\n_tavo \"$@\"\n";
  return text.str();
}

// ---- man ----

// Lines that would begin with a control character of the format are told apart.
std::string EscapeForMan(const std::string& text) {
  std::string escaped = Replace(Replace(text, "\\", "\\e"), "-", "\\-");
  escaped = Replace(Replace(escaped, "\n.", "\n\\&."), "\n'", "\n\\&'");
  return escaped.empty() || !std::strchr(".'", escaped[0]) ? escaped : "\\&" + escaped;
}

std::string Paragraphs(const std::string& text) {
  return Replace(EscapeForMan(text), "\n\n", "\n.PP\n") + '\n';
}

void WriteManOption(const Option& option, std::ostream& page) {
  page << ".TP\n";
  const char* separator = "";
  for (const std::string& name : option.names) {
    page << separator << (option.is_argument ? "\\fI" : "\\fB") << EscapeForMan(name) << "\\fR";
    separator = ", ";
  }
  if (!option.is_argument && !option.value.empty()) {
    page << " \\fI" << EscapeForMan(option.value) << "\\fR";
  }
  page << '\n' << EscapeForMan(option.about) << '\n';
}

std::string SynopsisOf(const Option& argument) {
  const std::string name = "\\fI" + EscapeForMan(argument.names[0]) + "\\fR";
  return (argument.is_required ? name : '[' + name + ']') + (argument.is_repeated ? "..." : "");
}

// `words` is the command as it is typed, `rest` the list of the program's commands.
std::string WritePage(const Command& command, const std::string& words, const std::string& rest) {
  std::ostringstream page;
  const std::string name = Replace(words, " ", "-");
  page << ".TH \"" << EscapeForMan(name) << "\" 1 \"\" \"tavo " TAVO_VERSION "\"\n"
       << ".SH NAME\n"
       << EscapeForMan(name) << " \\- " << EscapeForMan(command.summary) << "\n.SH SYNOPSIS\n.B "
       << EscapeForMan(words) << "\n[\\fIOPTION\\fR]...";
  for (const Option& option : command.options) {
    if (option.is_argument) page << ' ' << SynopsisOf(option);
  }
  if (!rest.empty()) page << " \\fICOMMAND\\fR";
  page << "\n.SH DESCRIPTION\n" << Paragraphs(command.about) << ".SH OPTIONS\n";
  for (const Option& option : command.options) WriteManOption(option, page);
  page << rest << ".SH NOTES\n" << Paragraphs(command.footer);
  return page.str();
}

// What the page of the program says of its subcommands.
std::string ListCommands(const std::vector<Command>& commands) {
  std::string list = ".SH COMMANDS\n";
  for (size_t i = 1; i < commands.size(); ++i) {
    list += ".TP\n\\fB" + EscapeForMan(commands[i].name) + "\\fR\n" +
            EscapeForMan(commands[i].summary) + ": \\fBtavo\\-" + EscapeForMan(commands[i].name) +
            "\\fR(1)\n";
  }
  return list;
}

// ---- Files ----

void WriteFile(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw CommandError(kFailed, path.string() + " cannot be written");
}

void Generate(const std::vector<Command>& commands, const fs::path& directory) {
  WriteFile(directory / "bash-completion/completions/tavo", WriteBash(commands));
  WriteFile(directory / "zsh/site-functions/_tavo", WriteZsh(commands));
  const fs::path pages = directory / "man/man1";
  WriteFile(pages / "tavo.1", WritePage(commands[0], "tavo", ListCommands(commands)));
  for (size_t i = 1; i < commands.size(); ++i) {
    const Command& command = commands[i];
    WriteFile(pages / ("tavo-" + command.name + ".1"),
              WritePage(command, "tavo " + command.name, ""));
  }
}

}  // namespace

void AddGenerate(desk::CommandLine& program) {
  const auto directory = std::make_shared<std::string>();
  desk::Command generate = program.AddCommand("generate", "Writes completions and manual pages.",
                                              "Example: tavo generate build/share");
  generate.Hide();
  generate.AddArgument("DIRECTORY", directory.get(), "Where to write, as below share/").Require();
  generate.OnRun([directory, &program] { Generate(program.Describe(), *directory); });
}

}  // namespace tools
