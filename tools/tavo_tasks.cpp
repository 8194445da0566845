// tavo tasks: the applications that can be started as tasks.

#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include <QFile>

#include "desk/common/value_json.h"
#include "desk/runtime_manager/application.h"
#include "tools/printable.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr char kAbout[] = "Lists what can be started as a task";
constexpr char kFooter[] =
    "Tells in which file each was found, and which files that one hides. The directories are those "
    "of\n"
    "TAVO_DESK_PATH, then the XDG data directories.\n\n"
    "Example:\n"
    "  tavo tasks --json | jq -r '.[] | select(.error == null) | .name'";

struct Options {
  bool json = false;
};

desk::Json Texts(const QStringList& texts) {
  desk::Json array = desk::Json::array();
  for (const QString& text : texts) array.push_back(QFile::encodeName(text).toStdString());
  return array;
}

// `error` is null for what can be started, `command` for what cannot.
desk::Json Describe(const QString& name) {
  const QStringList files = desk::FindFiles(name);
  QString error;
  const auto application = desk::FindApplication(name, &error);
  return {{"name", QFile::encodeName(name).toStdString()},
          {"file", Texts(files).at(0)},
          {"hides", Texts(files.mid(1))},
          {"command", application ? Texts(application->command) : desk::Json()},
          {"error", application ? desk::Json() : desk::Json(error.toStdString())}};
}

std::string Field(const desk::Json& task, const char* key) {
  return Printable(task.at(key).get<std::string>());
}

void Print(const desk::Json& tasks) {
  size_t width = 0;
  for (const auto& task : tasks) width = std::max(width, Field(task, "name").size());
  const std::string indentation(width + 2, ' ');
  for (const auto& task : tasks) {
    std::string name = Field(task, "name");
    name.resize(width, ' ');
    std::cout << name << "  " << Field(task, "file") << '\n';
    if (!task.at("error").is_null()) {
      std::cout << indentation << "cannot be started: " << Field(task, "error") << '\n';
    }
    for (const auto& hidden : task.at("hides")) {
      std::cout << indentation << "hides " << Printable(hidden.get<std::string>()) << '\n';
    }
  }
}

void Run(const Options& options) {
  desk::Json tasks = desk::Json::array();
  for (const QString& name : desk::ListApplications()) tasks.push_back(Describe(name));
  if (options.json) {
    std::cout << desk::ToText(tasks) << '\n';
  } else {
    Print(tasks);
  }
  std::cout.flush();
  if (!std::cout) throw CommandError(kFailed, "standard output cannot be written");
}

}  // namespace

void AddTasks(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command tasks = program.AddCommand("tasks", kAbout, kFooter);
  tasks.AddFlag("--json", &options->json, "Print a JSON array");
  tasks.OnRun([options] { Run(*options); });
}

}  // namespace tools
