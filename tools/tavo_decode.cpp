// tavo decode: prints RPC messages as trees or as JSON. It reads them as Base64 texts, as
// {"data": ...} lines, or as the desk records them.

#include <chrono>
#include <cstring>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "desk/common/json_text.h"
#include "desk/common/value_json.h"
#include "flrpc/message.h"
#include "tools/message_of.h"
#include "tools/printable.h"
#include "tools/record_reader.h"
#include "tools/records.h"
#include "tools/tavo_commands.h"
#include "tools/value_printer.h"

namespace tools {
namespace {

using cw::EncodableValue;
using desk::Json;
using flrpc::Message;

constexpr char kAbout[] =
    "Prints messages and values as trees, with types. A text is Base64, as it goes over the\n"
    "transport, a line {\"data\": BASE64}, as it goes over a task's socket, or a line of the file\n"
    "that TAVO_DESK_RECORD names: a frame of a task's socket, with the time, the task and the\n"
    "direction (to the task or from it) in a line before the tree, an intent, or the start and\n"
    "end of a task. Without texts\n"
    "and without a file the lines of standard input are read. What is not a message is printed\n"
    "as the value that it holds.";
constexpr char kFooter[] =
    "Example: tavo decode --json --file talk.jsonl\n"
    "\n"
    "Ends with 0; 1 when a text made no sense (the others are printed) or the file cannot be "
    "read;\n"
    "2 for a wrong command line.";

constexpr size_t kMaxEventMembers = 64;
constexpr auto kNever = std::chrono::steady_clock::time_point::max();

class BadInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// ---- In ----

const Json& MemberOf(const Json& json, const char* key) {
  const auto member = json.find(key);
  if (member == json.end()) throw BadInput("it has no \"" + std::string(key) + '"');
  return *member;
}

std::string TextOf(const Json& json, const char* key) {
  const auto member = json.find(key);
  if (member == json.end() || !member->is_string()) {
    throw BadInput("it has no text \"" + std::string(key) + '"');
  }
  return member->get<std::string>();
}

// ---- Out ----

// A text that is no UTF-8 has a mark, as within a value.
Json TextToJson(const std::string& text) { return desk::ToJson(text); }

Json ErrorToJson(const Message::Error& error) {
  Json json = {{"code", error.code}, {"message", TextToJson(error.message)}};
  json["data"] = desk::ToJson(error.data);
  return json;
}

Json ToJson(const Message& message) {
  Json json = Json::object();
  if (const auto* request = message.GetRequest()) {
    json = {{"kind", "request"},
            {"id", TextToJson(request->id.GetText())},
            {"method", TextToJson(request->method)}};
    json["params"] = desk::ToJson(request->params);
  } else if (const auto* response = message.GetResponse()) {
    json = {{"kind", "response"}, {"id", TextToJson(response->id.GetText())}};
    if (const auto* error = response->GetError()) json["error"] = ErrorToJson(*error);
    if (const auto* result = response->GetResult()) json["result"] = desk::ToJson(*result);
  } else if (const auto* notification = message.GetNotification()) {
    json = {{"kind", "notification"}, {"method", TextToJson(notification->method)}};
    json["params"] = desk::ToJson(notification->params);
  } else {
    json["kind"] = "error";
    json["error"] = ErrorToJson(*message.GetError());
  }
  return json;
}

Json ToJson(const EncodableValue& value) {
  if (const auto message = MessageOf(value)) return ToJson(*message);
  Json json = {{"kind", "value"}};
  json["value"] = desk::ToJson(value);
  return json;
}

// The text for a line, without the quotes.
std::string Escaped(const std::string& text) {
  const std::string quoted = Quote(text);
  return quoted.substr(1, quoted.size() - 2);
}

void PrintLine(const Json& json) { std::cout << desk::ToText(json) << '\n'; }

// `origin` is an object that describes the frame of the value.
void Print(const EncodableValue& value, Json origin, bool as_json) {
  if (as_json) {
    origin.update(ToJson(value));
    return PrintLine(origin);
  }
  const char* separator = "";
  for (const Json& text : origin) {
    std::cout << std::exchange(separator, " ") << Escaped(text.get<std::string>());
  }
  if (!origin.empty()) std::cout << '\n';
  const auto message = MessageOf(value);
  std::cout << (message ? Describe(*message) : Describe(value)) << '\n';
}

void PrintFrame(const Json& frame, bool as_json) {
  const Json origin = {{"time", TextOf(frame, "time")},
                       {"task", TextOf(frame, "task")},
                       {"direction", TextOf(frame, "direction")}};
  Print(DecodeValue(TextOf(MemberOf(frame, "message"), "data")), origin, as_json);
}

void PrintIntent(const Json& entry, bool as_json) {
  const std::string time = TextOf(entry, "time");
  const std::string intent = TextOf(entry, "intent");
  const Json& parameters = MemberOf(entry, "parameters");
  if (as_json) {
    return PrintLine(
        {{"time", time}, {"kind", "intent"}, {"intent", intent}, {"parameters", parameters}});
  }
  std::cout << Escaped(time) << " intent " << Quote(intent)
            << "\n  parameters: " << Printable(desk::ToText(parameters)) << '\n';
}

// The start, end or loss of a task.
void PrintEvent(const Json& entry, bool as_json) {
  if (entry.size() > kMaxEventMembers) throw BadInput("it has too many members");
  Json origin = {{"time", TextOf(entry, "time")}, {"task", TextOf(entry, "task")}};
  Json details = entry;
  for (const char* known : {"time", "task", "event"}) details.erase(known);
  if (as_json) {
    origin.update({{"kind", "event"}, {"event", TextOf(entry, "event")}});
    origin.update(details);
    return PrintLine(origin);
  }
  std::cout << Escaped(TextOf(entry, "time")) << ' ' << Escaped(TextOf(entry, "task")) << ' '
            << Escaped(TextOf(entry, "event"));
  for (const auto& [name, value] : details.items()) {
    std::cout << ' ' << Escaped(name) << ' ' << Printable(desk::ToText(value));
  }
  std::cout << '\n';
}

Json ParseLine(const std::string& line) {
  try {
    return desk::ParseJson(line);
  } catch (const std::runtime_error& error) {
    std::string what = error.what();
    if (what.rfind("line 1, ", 0) == 0) what.erase(0, std::strlen("line 1, "));
    throw BadInput("it is not JSON: " + what);
  }
}

void PrintText(const std::string& text, bool as_json) {
  if (text.front() != '{') return Print(DecodeValue(text), Json::object(), as_json);
  const Json json = ParseLine(text);
  if (json.contains("message")) return PrintFrame(json, as_json);
  if (json.contains("intent")) return PrintIntent(json, as_json);
  if (json.contains("event")) return PrintEvent(json, as_json);
  Print(DecodeValue(TextOf(json, "data")), Json::object(), as_json);
}

// ---- All of it ----

class Decoder {
 public:
  explicit Decoder(bool as_json) : as_json_(as_json) {}

  // Prints what the line says; `where` names it in an error.
  void Take(std::string line, const std::string& where) {
    try {
      if (line.size() > kMaxLine) throw BadInput("it is longer than 64 MiB");
      while (!line.empty() && std::strchr(" \t\r", line.back())) line.pop_back();
      line.erase(0, line.find_first_not_of(" \t"));
      if (!line.empty()) PrintText(line, as_json_);
    } catch (const std::exception& error) {
      std::cout.flush();  // What comes before the error is printed before it.
      std::cerr << "tavo decode: " << Printable(where + ": " + error.what()) << '\n';
      has_failed_ = true;
    }
  }

  // Takes the lines of the file, or of standard input for "-".
  void TakeLines(const std::string& file) {
    const std::string name = file == "-" ? "standard input" : file;
    const auto source = OpenRecord(file, false);
    std::string line;
    for (auto got = Got::kNothing; got != Got::kEnd; got = Next(*source, name, &line)) {
      if (got == Got::kLine) Take(line, name + ':' + std::to_string(source->GetLineNumber()));
    }
  }

  void Finish() {
    std::cout.flush();
    if (!std::cout) throw CommandError(kFailed, "standard output cannot be written");
    if (has_failed_) throw CommandError(kFailed, "");  // What is wrong is told already.
  }

 private:
  using Got = ILineSource::Got;

  static Got Next(ILineSource& source, const std::string& name, std::string* line) try {
    const Got got = source.Next(line, {});
    if (got != Got::kNothing) return got;
    std::cout.flush();  // Whoever reads the output need not wait as well.
    return source.Next(line, kNever);
  } catch (const std::runtime_error& error) {
    std::cout.flush();
    throw CommandError(kFailed, name + ": " + error.what());
  }

  const bool as_json_;
  bool has_failed_ = false;
};

struct Options {
  bool as_json = false;
  std::optional<std::string> file;
  std::vector<std::string> texts;
};

void Run(const Options& options) {
  Decoder decoder(options.as_json);
  if (options.file) {
    decoder.TakeLines(*options.file);
  } else if (options.texts.empty()) {
    decoder.TakeLines("-");
  }
  for (size_t i = 0; i < options.texts.size(); ++i) {
    decoder.Take(options.texts[i], "text " + std::to_string(i + 1));
  }
  decoder.Finish();
}

}  // namespace

void AddDecode(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command decode = program.AddCommand("decode", kAbout, kFooter);
  decode.AddFlag("--json", &options->as_json,
                 "Print one JSON object a text; of what was recorded, time, task and direction "
                 "come first. docs/tavo.md shows the JSON of values");
  const desk::Option file = decode.AddOption("--file", &options->file, "FILE",
                                             "Read the lines of this file; -: of standard input");
  decode.AddArgument("TEXT", &options->texts, "What is printed").Exclude(file);
  decode.OnRun([options] { Run(*options); });
}

}  // namespace tools
