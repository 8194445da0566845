#include "tools/value_printer.h"

#include <cstdio>
#include <type_traits>

#include "tools/printable.h"

namespace tools {
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;

constexpr size_t kMaxIndent = 80;    // Many deep values would make a text of gigabytes.
constexpr size_t kMaxElements = 32;  // The most elements of a typed list on one line.

std::string Format(const char* format, double number) {
  char text[40];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

std::string Show(int32_t number) { return std::to_string(number); }
std::string Show(int64_t number) { return std::to_string(number); }
std::string Show(double number) { return Format("%.17g", number); }
std::string Show(float number) { return Format("%.9g", static_cast<double>(number)); }
std::string Show(uint8_t byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  return {kDigits[byte >> 4], kDigits[byte & 15]};
}

template <typename T>
const char* NameOf() {
  if constexpr (std::is_same_v<T, uint8_t>) return "bytes";
  if constexpr (std::is_same_v<T, int32_t>) return "int32 list";
  if constexpr (std::is_same_v<T, int64_t>) return "int64 list";
  if constexpr (std::is_same_v<T, double>) return "float64 list";
  if constexpr (std::is_same_v<T, float>) return "float32 list";
}

class Printer {
 public:
  // The value's first line continues the present line; its content follows, indented, below.
  void Print(const EncodableValue& value, size_t indent) {
    value.Visit([this, indent](const auto& held) { PrintHeld(held, indent); });
  }

  // Begins a new line.
  std::string& Line(size_t indent) {
    if (!text_.empty()) text_ += '\n';
    if (indent <= kMaxIndent) return text_.append(indent, ' ');
    text_.append(kMaxIndent, ' ');
    return text_ += "(level " + std::to_string(indent / 2) + ") ";
  }

  std::string Take() { return std::move(text_); }

 private:
  void PrintHeld(std::monostate, size_t) { text_ += "null"; }
  void PrintHeld(bool truth, size_t) { text_ += truth ? "bool true" : "bool false"; }
  void PrintHeld(int32_t number, size_t) { text_ += "int32 " + Show(number); }
  void PrintHeld(int64_t number, size_t) { text_ += "int64 " + Show(number); }
  void PrintHeld(double number, size_t) { text_ += "float64 " + Show(number); }
  void PrintHeld(const std::string& text, size_t) { text_ += "text " + Quote(text); }
  void PrintHeld(const cw::CustomEncodableValue&, size_t) { text_ += "custom"; }

  template <typename T>
  void PrintHeld(const std::vector<T>& list, size_t) {
    Head(NameOf<T>(), list.size());
    const char* separator = ": ";
    for (size_t i = 0; i < list.size() && i < kMaxElements; ++i) {
      text_ += separator + Show(list[i]);
      separator = sizeof(T) == 1 ? " " : ", ";
    }
    if (list.size() > kMaxElements) {
      text_ += " ... " + std::to_string(list.size() - kMaxElements) + " more";
    }
  }

  void PrintHeld(const EncodableList& list, size_t indent) {
    Head("list", list.size());
    for (const auto& element : list) {
      Line(indent + 2);
      Print(element, indent + 2);
    }
  }

  void PrintHeld(const EncodableMap& map, size_t indent) {
    Head("map", map.size());
    for (const auto& [key, mapped] : map) {
      Line(indent + 2);
      if (const auto* name = key.GetIf<std::string>()) {
        text_ += Quote(*name);
      } else {
        Print(key, indent + 4);
      }
      text_ += ": ";
      Print(mapped, indent + 2);
    }
  }

  void Head(const char* name, size_t size) {
    text_ += std::string(name) + " (" + std::to_string(size) + ")";
  }

  std::string text_;
};

void PrintMember(Printer& printer, const char* name, const EncodableValue& value) {
  printer.Line(2) += std::string(name) + ": ";
  printer.Print(value, 2);
}

std::string Summary(const Message::Error& error) {
  return "error " + std::to_string(error.code) + " " + Quote(error.message);
}

}  // namespace

std::string Quote(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '"' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return '"' + Printable(escaped) + '"';
}

std::string Describe(const EncodableValue& value) {
  Printer printer;
  printer.Print(value, 0);
  return printer.Take();
}

std::string Describe(const Message& message) {
  Printer printer;
  std::string& head = printer.Line(0);
  if (const auto* request = message.GetRequest()) {
    head += "request " + Quote(request->id.GetText()) + " " + Quote(request->method);
    if (!request->params.IsNull()) PrintMember(printer, "params", request->params);
  } else if (const auto* response = message.GetResponse()) {
    head += "response " + Quote(response->id.GetText());
    const auto* error = response->GetError();
    if (error) head += " " + Summary(*error);
    if (error && !error->data.IsNull()) PrintMember(printer, "data", error->data);
    if (!error) PrintMember(printer, "result", *response->GetResult());
  } else if (const auto* notification = message.GetNotification()) {
    head += "notification " + Quote(notification->method);
    if (!notification->params.IsNull()) PrintMember(printer, "params", notification->params);
  } else if (const auto* error = message.GetError()) {
    head += Summary(*error);
    if (!error->data.IsNull()) PrintMember(printer, "data", error->data);
  } else {
    head += "empty";
  }
  return printer.Take();
}

}  // namespace tools
