// tavo-dump: prints RPC messages as trees. It reads them as Base64 texts, as {"data": ...} lines,
// or as the desk records them.

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "cw/admission.h"
#include "desk/common/standard_descriptors.h"
#include "desk/common/value_json.h"
#include "flrpc/message.h"
#include "forge/buffer.h"
#include "tools/value_printer.h"

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
    "Ends with 0; 1 when a text made no sense (the others are printed); 2 for a wrong command\n"
    "line or a file that cannot be read.";

constexpr int kWrongUsage = 2;

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

Json ParseLine(const std::string& line) {
  bool is_deep = false;
  const auto is_shallow = [&is_deep](int depth, Json::parse_event_t, Json&) {
    return !(is_deep = is_deep || depth > desk::kDeepestJson);
  };
  Json json = Json::parse(line, is_shallow, false);
  if (is_deep) throw BadInput("it is nested too deeply");
  if (json.is_discarded()) throw BadInput("it is not JSON");
  return json;
}

EncodableValue ValueOf(const std::string& text) {
  const auto bytes = forge::Buffer::FromBase64(text);
  if (bytes.GetSize() == 0) throw BadInput("it is not a Base64 text");
  if (const char* cause = cw::FindInadmissible(bytes.GetData(), bytes.GetSize())) {
    throw BadInput(cause);
  }
  return EncodableValue::Deserialize(bytes);
}

// Returns the value as a message, if it is one.
std::optional<Message> MessageOf(const EncodableValue& value) {
  auto message = Message::FromEncodable(value);
  const bool is_failure = message.IsError() && message.ToEncodable() != value;
  if (is_failure || message.IsEmpty()) return std::nullopt;
  return message;
}

// ---- Out ----

Json ErrorToJson(const Message::Error& error) {
  return {
      {"code", error.code}, {"message", error.message}, {"data", desk::ToTypedJson(error.data)}};
}

Json ToJson(const Message& message) {
  if (const auto* request = message.GetRequest()) {
    return {{"kind", "request"},
            {"id", request->id.GetText()},
            {"method", request->method},
            {"params", desk::ToTypedJson(request->params)}};
  }
  if (const auto* response = message.GetResponse()) {
    Json json = {{"kind", "response"}, {"id", response->id.GetText()}};
    const auto* error = response->GetError();
    json[error ? "error" : "result"] =
        error ? ErrorToJson(*error) : desk::ToTypedJson(*response->GetResult());
    return json;
  }
  if (const auto* notification = message.GetNotification()) {
    return {{"kind", "notification"},
            {"method", notification->method},
            {"params", desk::ToTypedJson(notification->params)}};
  }
  return {{"kind", "error"}, {"error", ErrorToJson(*message.GetError())}};
}

// The text for a line, without the quotes.
std::string Escaped(const std::string& text) {
  const std::string quoted = tools::Quote(text);
  return quoted.substr(1, quoted.size() - 2);
}

void PrintLine(const Json& json) { std::cout << desk::ToText(json) << '\n'; }

// `origin` is an object that describes the frame of the value.
void Print(const EncodableValue& value, Json origin, bool as_json) {
  const auto message = MessageOf(value);
  if (as_json) {
    origin.update(message ? ToJson(*message)
                          : Json{{"kind", "value"}, {"value", desk::ToTypedJson(value)}});
    return PrintLine(origin);
  }
  const char* separator = "";
  for (const Json& text : origin) {
    std::cout << std::exchange(separator, " ") << Escaped(text.get<std::string>());
  }
  if (!origin.empty()) std::cout << '\n';
  std::cout << (message ? tools::Describe(*message) : tools::Describe(value)) << '\n';
}

void PrintFrame(const Json& frame, bool as_json) {
  const Json origin = {{"time", TextOf(frame, "time")},
                       {"task", TextOf(frame, "task")},
                       {"direction", TextOf(frame, "direction")}};
  Print(ValueOf(TextOf(MemberOf(frame, "message"), "data")), origin, as_json);
}

void PrintIntent(const Json& entry, bool as_json) {
  const std::string time = TextOf(entry, "time");
  const std::string intent = TextOf(entry, "intent");
  const Json& parameters = MemberOf(entry, "parameters");
  if (as_json) {
    return PrintLine(
        {{"time", time}, {"kind", "intent"}, {"intent", intent}, {"parameters", parameters}});
  }
  std::cout << Escaped(time) << " intent " << tools::Quote(intent) << "\n  parameters: ";
  PrintLine(parameters);
}

// The start, end or loss of a task.
void PrintEvent(const Json& entry, bool as_json) {
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
    std::cout << ' ' << Escaped(name) << ' ' << desk::ToText(value);
  }
  std::cout << '\n';
}

void PrintText(const std::string& text, bool as_json) {
  if (text.front() != '{') return Print(ValueOf(text), Json::object(), as_json);
  const Json json = ParseLine(text);
  if (json.contains("message")) return PrintFrame(json, as_json);
  if (json.contains("intent")) return PrintIntent(json, as_json);
  if (json.contains("event")) return PrintEvent(json, as_json);
  Print(ValueOf(TextOf(json, "data")), Json::object(), as_json);
}

// ---- All of it ----

class Dump {
 public:
  explicit Dump(bool as_json) : as_json_(as_json) {}

  void Take(std::string line, const std::string& where) {
    while (!line.empty() && std::strchr(" \t\r", line.back())) line.pop_back();
    line.erase(0, line.find_first_not_of(" \t"));
    if (line.empty()) return;
    try {
      PrintText(line, as_json_);
    } catch (const std::exception& error) {
      std::cerr << "tavo-dump: " << where << ": " << error.what() << '\n';
      exit_code_ = 1;
    }
  }

  void TakeLines(std::istream& stream) {
    std::string line;
    for (size_t number = 1; std::getline(stream, line); ++number) {
      Take(line, "line " + std::to_string(number));
    }
  }

  int Finish() {
    std::cout.flush();
    if (std::cout) return exit_code_;
    std::cerr << "tavo-dump: standard output cannot be written\n";
    return 1;
  }

 private:
  const bool as_json_;
  int exit_code_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  desk::OpenStandardDescriptors();
  bool as_json = false;
  std::string name;
  std::vector<std::string> texts;
  CLI::App app(kAbout, "tavo-dump");
  app.footer(kFooter);
  app.add_flag("--json", as_json,
               "One JSON object a text: values are {\"type\": ..., \"value\": ...}, bytes are "
               "Base64, maps are arrays of [key, value]; of what was recorded, time, task and "
               "direction come first");
  auto* const file_option = app.add_option("--file", name, "Read the lines of this file");
  app.add_option("TEXT", texts, "What is printed")->excludes(file_option);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : kWrongUsage;
  }
  Dump dump(as_json);
  if (*file_option) {
    std::ifstream file(name);
    if (file) dump.TakeLines(file);
    if (!file.is_open() || file.bad()) {  // A directory can be opened but not read.
      const int cause = errno;
      dump.Finish();
      std::cerr << "tavo-dump: " << name << ": " << std::strerror(cause) << '\n';
      return kWrongUsage;
    }
  } else if (texts.empty()) {
    dump.TakeLines(std::cin);
  }
  for (size_t i = 0; i < texts.size(); ++i) {
    dump.Take(texts[i], "text " + std::to_string(i + 1));
  }
  return dump.Finish();
}
