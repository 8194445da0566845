// tavo encode: the Base64 text of a message or a value that is given as JSON.

#include <iostream>
#include <memory>

#include "cw/admission.h"
#include "flrpc/message.h"
#include "tools/json_argument.h"
#include "tools/message_of.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

using cw::EncodableMap;
using cw::EncodableValue;

constexpr char kAbout[] =
    "Prints the Base64 text of a value that is given as JSON. A message of the protocol is "
    "written\n"
    "as the library writes it. docs/tavo.md shows the JSON of values that JSON has no word for.";
constexpr char kFooter[] =
    "Example: tavo encode '{\"jsonrpc\": \"2.0\", \"id\": \"1\", \"method\": \"open\"}'\n"
    "\n"
    "Ends with 0; 1 for a value that no peer accepts; 2 for a wrong command line or wrong JSON.";

// Whether the map of a message holds each member of the given map, and of its error.
bool HoldsMembers(const EncodableMap& message, const EncodableMap& given) {
  for (const auto& [key, content] : given) {
    const auto kept = message.find(key);
    if (kept == message.end()) {
      if (!content.IsNull()) return false;
    } else if (key == EncodableValue("error")) {
      const auto& error = kept->second.Get<EncodableMap>();
      if (!HoldsMembers(error, content.Get<EncodableMap>())) return false;
    }
  }
  return true;
}

// A message as the library writes it, unless members would be lost.
EncodableValue Complete(const EncodableValue& value) {
  const auto message = MessageOf(value);
  if (!message) return value;
  EncodableValue map = message->ToEncodable();
  return HoldsMembers(map.Get<EncodableMap>(), value.Get<EncodableMap>()) ? map : value;
}

std::string Encode(const EncodableValue& value) {
  const forge::Buffer bytes = Complete(value).Serialize();
  if (const char* cause = cw::FindInadmissible(bytes.GetData(), bytes.GetSize())) {
    throw CommandError(kFailed, std::string("no peer accepts the value: ") + cause);
  }
  return bytes.ToBase64();
}

}  // namespace

void AddEncode(desk::CommandLine& program) {
  const auto json = std::make_shared<std::string>();
  desk::Command encode = program.AddCommand("encode", kAbout, kFooter);
  encode.AddArgument("JSON", json.get(), "The value; @FILE: in this file; -: on standard input")
      .Require();
  encode.OnRun([json] {
    std::cout << Encode(ReadValueArgument(*json)) << std::endl;
    if (!std::cout) throw CommandError(kFailed, "standard output cannot be written");
  });
}

}  // namespace tools
