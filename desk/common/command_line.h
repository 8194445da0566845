// A program's command line: commands, each with options and arguments, and their help.
//
//   desk::CommandLine program("tavo", "Tools.", "", "tavo 1.0");
//   desk::Command open = program.AddCommand("open", "Opens a URI", "Example: tavo open URI");
//   open.AddArgument("URI", &uri, "What is opened").Require();
//   open.AddSeconds("--timeout", &timeout, "How long to wait").ShowDefault();
//   open.OnRun([&] { Open(uri, timeout); });
//   std::cout << program.Parse({argv + 1, argv + argc});
//
// Threads:   one at a time.
// Ownership: Command and Option are handles that live as long as the CommandLine. What a value is
//            written to must live until Parse has returned.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace desk {

// What is wrong with a command line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// An option with a value, a flag, or an argument, which is told by its place.
class Option {
 public:
  // Returns what is wrong with the text of a value; empty: nothing is.
  using Check = std::function<std::string(const std::string& text)>;

  explicit Option(CLI::Option* option) : option_(option) {}

  Option& Require();
  Option& Verify(Check check);
  template <class T>
  Option& LimitTo(T min, T max);  // Both are allowed. T: double, uint32_t or uint64_t.
  Option& Need(const Option& other);
  Option& Exclude(const Option& other);
  Option& ShowDefault();  // The help shows what the value is now.
  // Of an option with a Take, which gets an empty text then. What looks like an option is no value.
  Option& AllowNoValue();

 private:
  CLI::Option* option_;
};

// `names` are separated by commas: "-f,--follow". T is a string, a double, uint32_t or uint64_t, or
// std::optional of a string or a uint32_t; or a vector of strings: an option that may be given
// several times, each time with one value, or all arguments that are left, as they were typed.
class Command {
 public:
  // Takes the text of a value. Throws std::invalid_argument with what is wrong with it.
  using Take = std::function<void(const std::string& text)>;

  explicit Command(CLI::App* app) : app_(app) {}

  Option AddFlag(const std::string& names, bool* value, const std::string& about);
  // `word` stands for the value in the help.
  template <class T>
  Option AddOption(const std::string& names, T* value, const std::string& word,
                   const std::string& about);
  // May be given several times, each time with one value.
  Option AddOption(const std::string& names, Take take, const std::string& word,
                   const std::string& about);
  // A number that is not negative, in seconds or with the unit ms, s or min.
  Option AddSeconds(const std::string& names, double* value, const std::string& about);
  template <class T>
  Option AddArgument(const std::string& name, T* value, const std::string& about);

  // What is done when the command line names this command and has no fault.
  void OnRun(std::function<void()> run);
  // The same, given the words that no option and no argument takes, which are refused otherwise.
  void OnRunWithRest(std::function<void(std::vector<std::string> rest)> run);

  void StopAtArgument();  // All words behind the first argument are arguments, also "--help".
  void Hide();            // From the help and from CommandLine::Describe.

 private:
  CLI::App* app_;
};

struct OptionDescription {
  std::vector<std::string> names;  // With their dashes. An argument has one, without.
  std::string value;               // The word for its value; empty for a flag.
  std::string about;
  bool is_argument = false;
  bool is_required = false;
  bool is_repeated = false;
};

struct CommandDescription {
  std::string name;
  std::string summary;  // The first sentence of `about`.
  std::string about;
  std::string footer;
  std::vector<OptionDescription> options;
};

// The program, which is a command as well. With commands added it runs exactly one of them.
class CommandLine final : public Command {
 public:
  // Without a version there is no --version.
  CommandLine(const std::string& name, const std::string& about, const std::string& footer,
              const std::string& version = "");
  ~CommandLine();
  CommandLine(CommandLine&&) = delete;

  Command AddCommand(const std::string& name, const std::string& about, const std::string& footer);

  // Reads the words behind the program's name and runs the command. Returns the text to print in
  // its place when the help or the version is asked for, else an empty one. Throws UsageError, and
  // what the command throws.
  std::string Parse(std::vector<std::string> words);

  // The program's name and that of the command that was parsed: "tavo open".
  std::string GetCommandName() const;

  std::vector<CommandDescription> Describe() const;  // The program first.

 private:
  explicit CommandLine(std::unique_ptr<CLI::App> app);

  std::unique_ptr<CLI::App> owned_;
};

}  // namespace desk
