// tavo-dump: prints RPC messages, given as Base64 texts, as {"data": ...} lines or as the desk
// records them, as trees.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "cw/admission.h"
#include "flrpc/message.h"
#include "forge/buffer.h"
#include "tools/value_printer.h"

namespace {

using cw::EncodableValue;
using flrpc::Message;
using Json = nlohmann::ordered_json;

constexpr char kUsage[] =
    "usage: tavo-dump [--json] [--file FILE | TEXT...]\n"
    "\n"
    "Prints messages and values as trees, with types. A text is Base64, as it goes over the\n"
    "transport, a line {\"data\": BASE64}, as it goes over a task's socket, or a line of the file\n"
    "that TAVO_DESK_RECORD names: a frame of a task's socket, with the time, the task and the\n"
    "direction (to the task or from it) in a line before the tree, or an intent. Without texts\n"
    "and without a file the lines of standard input are read. What is no message is printed as\n"
    "the value that it holds.\n"
    "\n"
    "--json prints one JSON object a text: values are {\"type\": ..., \"value\": ...}, bytes are\n"
    "Base64, maps are arrays of [key, value]; of what was recorded, time, task and direction come\n"
    "first.\n"
    "\n"
    "Ends with 0, 1 when a text made no sense (the others are printed), 2 for a wrong command "
    "line or\na file that cannot be read.\n";

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
  Json json = Json::parse(line, nullptr, false);
  if (json.is_discarded()) throw BadInput("it is no JSON");
  return json;
}

EncodableValue ValueOf(const std::string& text) {
  const auto bytes = forge::Buffer::FromBase64(text);
  if (bytes.GetSize() == 0) throw BadInput("it is no Base64 text");
  if (const char* cause = cw::FindInadmissible(bytes.GetData(), bytes.GetSize())) {
    throw BadInput(cause);
  }
  return EncodableValue::Deserialize(bytes);
}

// The message that the value is, if it is one.
std::optional<Message> MessageOf(const EncodableValue& value) {
  auto message = Message::FromEncodable(value);
  const bool is_failure = message.IsError() && message.ToEncodable() != value;
  if (is_failure || message.IsEmpty()) return std::nullopt;
  return message;
}

// ---- Out ----

template <typename T>
const char* TypeName() {
  if constexpr (std::is_same_v<T, std::monostate>) return "null";
  if constexpr (std::is_same_v<T, bool>) return "bool";
  if constexpr (std::is_same_v<T, int32_t>) return "int32";
  if constexpr (std::is_same_v<T, int64_t>) return "int64";
  if constexpr (std::is_same_v<T, double>) return "float64";
  if constexpr (std::is_same_v<T, std::string>) return "text";
  if constexpr (std::is_same_v<T, std::vector<uint8_t>>) return "bytes";
  if constexpr (std::is_same_v<T, std::vector<int32_t>>) return "int32 list";
  if constexpr (std::is_same_v<T, std::vector<int64_t>>) return "int64 list";
  if constexpr (std::is_same_v<T, std::vector<double>>) return "float64 list";
  if constexpr (std::is_same_v<T, std::vector<float>>) return "float32 list";
  if constexpr (std::is_same_v<T, cw::EncodableList>) return "list";
  if constexpr (std::is_same_v<T, cw::EncodableMap>) return "map";
  return "custom";
}

Json ToJson(const EncodableValue& value);

// JSON has no such numbers: they are texts.
template <typename T>
Json NumberToJson(T number) {
  if constexpr (std::is_floating_point_v<T>) {
    if (std::isnan(number)) return "NaN";
    if (std::isinf(number)) return number > 0 ? "Infinity" : "-Infinity";
  }
  return number;
}

template <typename T>
Json ContentToJson(const T& content) {
  if constexpr (std::is_same_v<T, std::monostate> || std::is_same_v<T, cw::CustomEncodableValue>) {
    return nullptr;
  } else if constexpr (std::is_same_v<T, std::vector<uint8_t>>) {
    return forge::Buffer(content).ToBase64();
  } else if constexpr (std::is_same_v<T, cw::EncodableMap>) {
    Json entries = Json::array();
    for (const auto& [key, mapped] : content) entries.push_back({ToJson(key), ToJson(mapped)});
    return entries;
  } else if constexpr (std::is_same_v<T, cw::EncodableList>) {
    Json elements = Json::array();
    for (const auto& element : content) elements.push_back(ToJson(element));
    return elements;
  } else if constexpr (std::is_arithmetic_v<T>) {
    return NumberToJson(content);
  } else if constexpr (std::is_same_v<T, std::string>) {
    return content;
  } else {
    Json numbers = Json::array();
    for (const auto number : content) numbers.push_back(NumberToJson(number));
    return numbers;
  }
}

Json ToJson(const EncodableValue& value) {
  return value.Visit([](const auto& content) -> Json {
    return {{"type", TypeName<std::decay_t<decltype(content)>>()},
            {"value", ContentToJson(content)}};
  });
}

Json ErrorToJson(const Message::Error& error) {
  return {{"code", error.code}, {"message", error.message}, {"data", ToJson(error.data)}};
}

Json ToJson(const Message& message) {
  if (const auto* request = message.GetRequest()) {
    return {{"kind", "request"},
            {"id", request->id.GetText()},
            {"method", request->method},
            {"params", ToJson(request->params)}};
  }
  if (const auto* response = message.GetResponse()) {
    Json json = {{"kind", "response"}, {"id", response->id.GetText()}};
    const auto* error = response->GetError();
    json[error ? "error" : "result"] = error ? ErrorToJson(*error) : ToJson(*response->GetResult());
    return json;
  }
  if (const auto* notification = message.GetNotification()) {
    return {{"kind", "notification"},
            {"method", notification->method},
            {"params", ToJson(notification->params)}};
  }
  return {{"kind", "error"}, {"error", ErrorToJson(*message.GetError())}};
}

// For a line of text: without the quotes.
std::string Escaped(const std::string& text) {
  const std::string quoted = tools::Quote(text);
  return quoted.substr(1, quoted.size() - 2);
}

void PrintLine(const Json& json) {
  std::cout << json.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

// `origin` is an object: what is known of the frame that brought the value.
void Print(const EncodableValue& value, Json origin, bool as_json) {
  const auto message = MessageOf(value);
  if (as_json) {
    origin.update(message ? ToJson(*message) : Json{{"kind", "value"}, {"value", ToJson(value)}});
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

void PrintText(const std::string& text, bool as_json) {
  if (text.front() != '{') return Print(ValueOf(text), Json::object(), as_json);
  const Json json = ParseLine(text);
  if (json.contains("message")) return PrintFrame(json, as_json);
  if (json.contains("intent")) return PrintIntent(json, as_json);
  Print(ValueOf(TextOf(json, "data")), Json::object(), as_json);
}

// ---- All of it ----

// Where one of the standard descriptors is closed, the next file that is opened would become it,
// and output would go there.
void OpenStandardDescriptors() {
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) == -1) open("/dev/null", O_RDWR);  // The lowest that is free.
  }
}

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
  OpenStandardDescriptors();
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  size_t next = 0;
  const auto is = [&](const char* option) {
    return next < arguments.size() && arguments[next] == option;
  };
  if (is("--help")) {
    std::cout << kUsage;
    return 0;
  }
  const bool as_json = is("--json");
  if (as_json) ++next;
  Dump dump(as_json);
  if (is("--file") && arguments.size() == next + 2) {
    std::ifstream file(arguments[next + 1]);
    if (file) dump.TakeLines(file);
    if (!file.is_open() || file.bad()) {  // A directory can be opened, but not read.
      const int cause = errno;
      dump.Finish();
      std::cerr << "tavo-dump: " << arguments[next + 1] << ": " << std::strerror(cause) << '\n';
      return 2;
    }
  } else if (next < arguments.size() && arguments[next].rfind("--", 0) == 0) {
    std::cerr << kUsage;
    return 2;
  } else if (next < arguments.size()) {
    for (; next < arguments.size(); ++next) {
      dump.Take(arguments[next], "text " + std::to_string(next + 1 - (as_json ? 1 : 0)));
    }
  } else {
    dump.TakeLines(std::cin);
  }
  return dump.Finish();
}
