#include "desk/common/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <optional>
#include <sstream>
#include <utility>

namespace desk {
namespace {

// ---- Words as they were typed ----

// CLI11 takes an argument "[a,b]" for a list. A sign in front of such a word prevents that, until
// the word is kept.
constexpr char kShield = '\x01';

void Shield(std::string* word) {
  if (!word->empty() && (word->front() == '[' || word->front() == kShield)) {
    word->insert(word->begin(), kShield);
  }
}

std::string Unshield(std::string word) {
  if (!word.empty() && word.front() == kShield) word.erase(word.begin());
  return word;
}

std::string UnshieldText(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), kShield), text.end());
  return text;
}

// ---- Values ----

// Makes a number with an optional unit the number of seconds. Returns what is wrong.
std::string ReadSeconds(std::string& text) {
  static const std::pair<std::string, double> kUnits[] = {{"ms", 0.001}, {"s", 1}, {"min", 60}};
  std::string number = CLI::detail::to_lower(text);
  double factor = 1;
  for (const auto& [unit, seconds] : kUnits) {
    const size_t length = std::min(number.size(), unit.size());
    if (number.compare(number.size() - length, length, unit) != 0) continue;
    number.resize(number.size() - length);
    factor = seconds;
    break;
  }
  double seconds = 0;
  const bool is_number = CLI::detail::lexical_cast(CLI::detail::rtrim(number), seconds);
  if (!is_number || !std::isfinite(seconds) || seconds < 0) {
    return '"' + text + "\" is no number of seconds; it may end in ms, s or min";
  }
  std::ostringstream stream;
  stream << std::setprecision(15) << seconds * factor;
  text = stream.str();
  return "";
}

template <class T>
std::string CheckLimits(const std::string& text, T min, T max) {
  T value{};
  if (CLI::detail::lexical_cast(text, value) && value >= min && value <= max) return "";
  std::ostringstream fault;
  fault << std::setprecision(15) << "Value " << text << " not in range " << min << " to " << max;
  return fault.str();
}

CLI::Option* Finish(CLI::Option* option, const std::string& word) {
  option->transform(Unshield);
  if (option->get_positional()) return option;
  option->type_name(word)->allow_extra_args(false);  // A list takes one value each time.
  return option;
}

// ---- Texts ----

// The first sentence of the description, up to its full stop or colon.
std::string Summarize(const CLI::App& app) {
  std::string text = app.get_description();
  std::replace(text.begin(), text.end(), '\n', ' ');
  for (const char* end : {". ", ": "}) text = text.substr(0, text.find(end));
  if (!text.empty() && text.back() == '.') text.pop_back();
  return text;
}

// Help that lists the commands with their summaries.
class SummaryFormatter final : public CLI::Formatter {
 public:
  std::string make_subcommand(const CLI::App* command) const override {
    std::ostringstream line;
    CLI::detail::format_help(line, command->get_name(), Summarize(*command), column_width_);
    return line.str();
  }
};

OptionDescription DescribeOption(const CLI::Option& option) {
  OptionDescription description;
  description.about = option.get_description();
  description.is_argument = option.get_positional();
  description.is_required = option.get_required();
  description.is_repeated = option.get_items_expected_max() > 1 ||
                            option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
  for (const std::string& name : option.get_snames()) description.names.push_back('-' + name);
  for (const std::string& name : option.get_lnames()) description.names.push_back("--" + name);
  if (description.is_argument) description.names = {option.get_name(true)};
  if (option.get_items_expected_max() > 0) description.value = option.get_type_name();
  return description;
}

CommandDescription DescribeCommand(const CLI::App& app) {
  CommandDescription command{
      app.get_name(), Summarize(app), app.get_description(), app.get_footer(), {}};
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_group().empty()) command.options.push_back(DescribeOption(*option));
  }
  return command;
}

// ---- Faults ----

// The words that nothing takes, in their order.
std::vector<std::string> FindUnknown(const CLI::App& app) {
  std::vector<std::string> unknown = app.remaining();
  for (const CLI::App* command : app.get_subcommands()) {
    if (command->get_allow_extras()) continue;
    const std::vector<std::string> rest = command->remaining();
    unknown.insert(unknown.end(), rest.begin(), rest.end());
  }
  unknown.erase(std::remove(unknown.begin(), unknown.end(), "--"), unknown.end());
  return unknown;
}

// The parser's own text tells what is missing rather than which word is wrong. `words` are those in
// front of "--", which may be options.
std::string Explain(const CLI::App& app, const std::vector<std::string>& words,
                    const CLI::ParseError& error) {
  const std::vector<std::string> unknown = FindUnknown(app);
  const bool has_command = app.get_require_subcommand_min() == 0 || !app.get_subcommands().empty();
  if (unknown.empty()) return has_command ? error.what() : "no command is given";
  const auto option = std::find_if(unknown.begin(), unknown.end(), [&](const std::string& word) {
    return word.size() > 1 && word[0] == '-' &&
           std::find(words.begin(), words.end(), word) != words.end();
  });
  if (option != unknown.end()) {
    const std::string name = option->substr(0, option->find('='));
    return "there is no option \"" + name + '"';
  }
  if (!has_command) return "there is no command \"" + unknown.front() + '"';
  return "not expected: " + CLI::detail::join(unknown, " ");
}

}  // namespace

// ---- Options ----

Option& Option::Require() {
  option_->required();
  return *this;
}

Option& Option::Verify(Check check) {
  option_->check(std::move(check));
  return *this;
}

template <class T>
Option& Option::LimitTo(T min, T max) {
  return Verify([min, max](const std::string& text) { return CheckLimits(text, min, max); });
}

template Option& Option::LimitTo(double, double);
template Option& Option::LimitTo(uint32_t, uint32_t);
template Option& Option::LimitTo(uint64_t, uint64_t);

Option& Option::Need(const Option& other) {
  option_->needs(other.option_);
  return *this;
}

Option& Option::Exclude(const Option& other) {
  option_->excludes(other.option_);
  return *this;
}

Option& Option::ShowDefault() {
  option_->capture_default_str();
  return *this;
}

Option& Option::AllowNoValue() {
  option_->type_name('[' + option_->get_type_name() + ']');
  option_->expected(0, 1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  return *this;
}

// ---- Commands ----

Option Command::AddFlag(const std::string& names, bool* value, const std::string& about) {
  return Option(app_->add_flag(names, *value, about));
}

template <class T>
Option Command::AddOption(const std::string& names, T* value, const std::string& word,
                          const std::string& about) {
  return Option(Finish(app_->add_option(names, *value, about), word));
}

Option Command::AddOption(const std::string& names, Take take, const std::string& word,
                          const std::string& about) {
  const auto take_all = [names, take = std::move(take)](const std::vector<std::string>& texts) {
    try {
      for (const std::string& text : texts) take(text);
    } catch (const std::invalid_argument& error) {
      throw CLI::ValidationError(names, error.what());
    }
  };
  return Option(
      Finish(app_->add_option_function<std::vector<std::string>>(names, take_all, about), word));
}

Option Command::AddSeconds(const std::string& names, double* value, const std::string& about) {
  CLI::Option* const option = Finish(app_->add_option(names, *value, about), "SECONDS");
  return Option(option->transform(CLI::Validator(ReadSeconds, "")));
}

template <class T>
Option Command::AddArgument(const std::string& name, T* value, const std::string& about) {
  return Option(Finish(app_->add_option(name, *value, about), ""));
}

#define DESK_ADD_VALUE(...)                                                                \
  template Option Command::AddOption(const std::string&, __VA_ARGS__*, const std::string&, \
                                     const std::string&);                                  \
  template Option Command::AddArgument(const std::string&, __VA_ARGS__*, const std::string&)

DESK_ADD_VALUE(double);
DESK_ADD_VALUE(uint32_t);
DESK_ADD_VALUE(uint64_t);
DESK_ADD_VALUE(std::string);
DESK_ADD_VALUE(std::optional<uint32_t>);
DESK_ADD_VALUE(std::optional<std::string>);
DESK_ADD_VALUE(std::vector<std::string>);
#undef DESK_ADD_VALUE

void Command::OnRun(std::function<void()> run) { app_->callback(std::move(run)); }

void Command::OnRunWithRest(std::function<void(std::vector<std::string> rest)> run) {
  app_->allow_extras();
  app_->callback([app = app_, run = std::move(run)] {
    std::vector<std::string> rest = app->remaining();
    std::transform(rest.begin(), rest.end(), rest.begin(), Unshield);
    run(std::move(rest));
  });
}

void Command::StopAtArgument() { app_->positionals_at_end(); }

void Command::Hide() { app_->group(""); }

// ---- The program ----

CommandLine::CommandLine(const std::string& name, const std::string& about,
                         const std::string& footer, const std::string& version)
    : CommandLine(std::make_unique<CLI::App>(about, name)) {
  owned_->footer(footer);
  owned_->formatter(std::make_shared<SummaryFormatter>());
  if (!version.empty()) {
    owned_->set_version_flag("--version", version, "Print the version and exit");
  }
}

CommandLine::CommandLine(std::unique_ptr<CLI::App> app)
    : Command(app.get()), owned_(std::move(app)) {}

CommandLine::~CommandLine() = default;

Command CommandLine::AddCommand(const std::string& name, const std::string& about,
                                const std::string& footer) {
  owned_->require_subcommand(1);
  CLI::App* const command = owned_->add_subcommand(name, about);
  command->footer(footer);
  return Command(command);
}

std::string CommandLine::Parse(std::vector<std::string> words) {
  for (std::string& word : words) Shield(&word);
  const std::vector<std::string> own(words.begin(), std::find(words.begin(), words.end(), "--"));
  std::reverse(words.begin(), words.end());  // In the form that the parser expects.
  try {
    owned_->parse(std::move(words));
    return "";
  } catch (const CLI::CallForHelp&) {
    return owned_->help();
  } catch (const CLI::CallForVersion& version) {
    return version.what() + std::string("\n");
  } catch (const CLI::ParseError& error) {
    throw UsageError(UnshieldText(Explain(*owned_, own, error)));
  }
}

std::string CommandLine::GetCommandName() const {
  std::string name = owned_->get_name();
  for (const CLI::App* command : owned_->get_subcommands()) name += ' ' + command->get_name();
  return name;
}

std::vector<CommandDescription> CommandLine::Describe() const {
  std::vector<CommandDescription> commands = {DescribeCommand(*owned_)};
  const CLI::App& app = *owned_;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) commands.push_back(DescribeCommand(*command));
  }
  return commands;
}

}  // namespace desk
