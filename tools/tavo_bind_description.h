// The description of an interface: what a client and a server may say to each other.
//
//   {
//     "name": "notes",
//     "doc": "Keeps notes.",
//     "enums": {"Color": ["red", "darkGreen"]},
//     "structs": {"Note": {"text": "string", "tags": "string[]", "color": "Color?"}},
//     "methods": {"add": {"params": "Note", "result": "int64", "doc": "Adds a note."}},
//     "notifications": {"removed": {"from": "server", "params": "int64"}}
//   }
//
// A type is a name of kBasicTypes, of a struct or of an enum. Behind it may stand [] (a list), {}
// (a map whose keys are texts) and ? (may be null; a field may be missing), in any combination. A
// method without "params" or "result" has none. Every part but the name may be left out.
//
// Threads: plain values, no locking.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

// The types that are there without a declaration, and their types in C++.
struct BasicType {
  std::string_view name;
  std::string_view cpp;
  std::string_view initial;  // The value of a field, if its type needs one.
};
constexpr BasicType kBasicTypes[] = {
    {"bool", "bool", "false"},
    {"int8", "int8_t", "0"},
    {"int16", "int16_t", "0"},
    {"int32", "int32_t", "0"},
    {"int64", "int64_t", "0"},
    {"uint8", "uint8_t", "0"},
    {"uint16", "uint16_t", "0"},
    {"uint32", "uint32_t", "0"},
    {"uint64", "uint64_t", "0"},
    {"float", "float", "0"},
    {"double", "double", "0"},
    {"string", "std::string", ""},
    {"bytes", "std::vector<uint8_t>", ""},
    {"any", "cw::EncodableValue", ""},
};
const BasicType* FindBasicType(std::string_view name);

struct Type {
  std::string base;
  std::vector<char> around;  // What stands behind the base, as the first characters: '[', '{', '?'.
};

struct Field {
  std::string name;
  Type type;
};

struct Struct {
  std::string name;
  std::vector<Field> fields;
};

struct Enum {
  std::string name;
  std::vector<std::string> values;  // As they travel.
};

struct Method {
  std::string name;
  std::optional<Type> params;
  std::optional<Type> result;
  std::string doc;
};

struct Notification {
  std::string name;
  bool is_from_server;
  std::optional<Type> params;
  std::string doc;
};

struct Description {
  std::string name;
  std::string doc;
  std::vector<Enum> enums;
  std::vector<Struct> structs;  // In an order in which each names only earlier ones.
  std::vector<Method> methods;
  std::vector<Notification> notifications;
};

// Reads the JSON text. Throws std::runtime_error with the place and the reason for one that makes
// no sense, also for names that the generated code cannot have.
Description ReadDescription(const std::string& text);

// The type as it is written in a description.
std::string ToText(const Type& type);

// The name in C++ of a method or a notification: "file.open" becomes "FileOpen".
std::string ToCppName(std::string_view name);

// Whether C++ code may use the name, and no macro of usual headers has it.
bool IsUsableName(std::string_view name);

}  // namespace tools
