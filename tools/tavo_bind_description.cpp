#include "tools/tavo_bind_description.h"

#include <algorithm>
#include <functional>
#include <set>
#include <stdexcept>

#include "desk/common/json_fields.h"
#include "desk/common/json_text.h"

namespace tools {
namespace {

using desk::Json;
using desk::Node;

constexpr size_t kMaxMembers = 32;  // What TAVO_DESCRIBE takes.
constexpr size_t kMaxAround = 4;

// Words of C++, and macros of the C library, of compilers and of Qt, between blanks.
constexpr std::string_view kTakenNames =
    " alignas alignof and and_eq arm asm assert auto bitand bitor bool break case catch char "
    "char16_t char32_t char8_t class co_await co_return co_yield compl concept const "
    "const_cast consteval constexpr constinit continue decltype default delete do double "
    "dynamic_cast else emit enum errno explicit export extern false float for foreach "
    "forever friend goto if inline int linux long mutable namespace new noexcept not not_eq "
    "nullptr operator or or_eq private protected public register reinterpret_cast requires "
    "return short signals signed sizeof slots static static_assert static_cast stderr stdin "
    "stdout struct switch template this thread_local throw true try typedef typeid typename "
    "union unix unsigned using virtual void volatile wchar_t while xor xor_eq ";

bool IsLower(char c) { return c >= 'a' && c <= 'z'; }
bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsSeparator(char c) { return c == '.' || c == '/' || c == '-' || c == '_'; }

// Calls the function with each member of an object, and does nothing for one that is missing.
void ForEach(const Node& node, const char* key,
             const std::function<void(const std::string&, const Node&)>& read) {
  if (!node.json.contains(key)) return;
  const Node object = node.At(key);
  object.Expect(object.json.is_object(), "an object");
  for (const auto& [name, content] : object.json.items()) read(name, object.At(name));
}

std::string ReadDoc(const Node& node) {
  std::string doc;
  desk::ObjectReader reader(node);
  reader("doc", doc);
  for (const char c : doc) {
    const bool is_bad = c == '\\' || (static_cast<unsigned char>(c) < ' ' && c != '\n');
    if (is_bad) node.At("doc").Fail("a text without backslashes and control characters is wanted");
  }
  return doc;
}

// ---- Names ----

// A name as a field or a value has it: firstSecond or first_second.
void ExpectName(const Node& node, const std::string& name) {
  if (!IsUsableName(name) || !IsLower(name.front())) {
    node.Fail("a name of C++ that begins with a small letter is wanted");
  }
}

void ExpectTypeName(const Node& node, const std::string& name) {
  if (!IsUsableName(name) || !IsUpper(name.front())) {
    node.Fail("a name of C++ that begins with a capital letter is wanted");
  }
  if (name == "Client" || name == "Server")
    node.Fail("the generated code has a class of that name");
}

// The name of a method or a notification. Names that begin with $ belong to the kit.
void ExpectMessageName(const Node& node, const std::string& name) {
  const bool is_right =
      !name.empty() && IsLower(name.front()) && std::all_of(name.begin(), name.end(), [](char c) {
        return IsLower(c) || IsUpper(c) || IsDigit(c) || IsSeparator(c);
      });
  if (!is_right) node.Fail("letters, digits and . / - _ behind a small letter are wanted");
}

// ---- Types ----

Type ParseType(const Node& node) {
  std::string text;
  desk::Read(node, &text);
  Type type;
  while (!text.empty() && !IsLower(text.back()) && !IsUpper(text.back()) && !IsDigit(text.back()) &&
         text.back() != '_') {
    const bool is_pair = text.size() > 1 && (text.substr(text.size() - 2) == "[]" ||
                                             text.substr(text.size() - 2) == "{}");
    if (!is_pair && text.back() != '?') node.Fail("a type ends with its name, or with [], {} or ?");
    const char kind = is_pair ? text[text.size() - 2] : '?';
    if (kind == '?' && !type.around.empty() && type.around.front() == '?') {
      node.Fail("one ? is enough");
    }
    type.around.insert(type.around.begin(), kind);
    text.resize(text.size() - (is_pair ? 2 : 1));
  }
  if (type.around.size() > kMaxAround) node.Fail("the type is nested too deeply");
  type.base = text;
  return type;
}

class Reader {
 public:
  explicit Reader(const Node& node) : node_(node) {}

  Description Read() {
    desk::ObjectReader reader(node_);
    reader("name", description_.name);
    for (const char* key : {"doc", "enums", "structs", "methods", "notifications"}) {
      reader.Ignore(key);
    }
    reader.ExpectKnownKeysOnly();
    if (!node_.json.contains("name")) node_.Fail("a \"name\" is wanted");
    ExpectName(node_.At("name"), description_.name);
    description_.doc = ReadDoc(node_);
    CollectTypeNames();
    ForEach(node_, "enums", [this](auto& name, const Node& node) { ReadEnum(name, node); });
    ForEach(node_, "structs", [this](auto& name, const Node& node) { ReadStruct(name, node); });
    ForEach(node_, "methods", [this](auto& name, const Node& node) { ReadMethod(name, node); });
    ForEach(node_, "notifications",
            [this](auto& name, const Node& node) { ReadNotification(name, node); });
    SortStructs();
    return std::move(description_);
  }

 private:
  // Types may be used before they are declared.
  void CollectTypeNames() {
    for (const char* key : {"enums", "structs"}) {
      ForEach(node_, key, [this](const std::string& name, const Node& node) {
        ExpectTypeName(node, name);
        if (!type_names_.insert(name).second) node.Fail("an enum has the same name");
      });
    }
    client_names_ = server_names_ = type_names_;
    client_names_.insert({"GetCaller"});
    server_names_.insert({"Run", "Stop"});
  }

  void ReadEnum(const std::string& name, const Node& node) {
    Enum read{name, {}};
    desk::Read(node, &read.values);
    ExpectSize(node, read.values.size(), "values");
    for (size_t i = 0; i < read.values.size(); ++i) {
      ExpectName(node.At(i), read.values[i]);
      const auto end = read.values.begin() + static_cast<std::ptrdiff_t>(i);
      if (std::find(read.values.begin(), end, read.values[i]) != end) {
        node.At(i).Fail("the value is there twice");
      }
    }
    description_.enums.push_back(std::move(read));
  }

  void ReadStruct(const std::string& name, const Node& node) {
    Struct read{name, {}};
    node.Expect(node.json.is_object(), "an object");
    ExpectSize(node, node.json.size(), "fields");
    for (const auto& [field, type] : node.json.items()) {
      ExpectName(node.At(field), field);
      read.fields.push_back({field, ReadType(node.At(field))});
    }
    description_.structs.push_back(std::move(read));
  }

  void ReadMethod(const std::string& name, const Node& node) {
    desk::ObjectReader reader(node);
    for (const char* key : {"params", "result", "doc"}) reader.Ignore(key);
    reader.ExpectKnownKeysOnly();
    ExpectMessageName(node, name);
    const std::string cpp = ToCppName(name);
    Take(node, &client_names_, {cpp, cpp + "Future", cpp + "Await"});
    Take(node, &server_names_, {cpp});
    description_.methods.push_back(
        {name, ReadOptionalType(node, "params"), ReadOptionalType(node, "result"), ReadDoc(node)});
  }

  void ReadNotification(const std::string& name, const Node& node) {
    std::string from;
    desk::ObjectReader reader(node);
    reader("from", from);
    for (const char* key : {"params", "doc"}) reader.Ignore(key);
    reader.ExpectKnownKeysOnly();
    ExpectMessageName(node, name);
    if (from != "client" && from != "server") {
      node.Fail("a \"from\" is wanted, which is \"client\" or \"server\"");
    }
    const bool is_from_server = from == "server";
    const std::string cpp = ToCppName(name);
    Take(node, &client_names_, {(is_from_server ? "On" : "Notify") + cpp});
    Take(node, &server_names_, {(is_from_server ? "Notify" : "On") + cpp});
    description_.notifications.push_back(
        {name, is_from_server, ReadOptionalType(node, "params"), ReadDoc(node)});
  }

  static void ExpectSize(const Node& node, size_t size, const char* what) {
    if (size > 0 && size <= kMaxMembers) return;
    node.Fail("1 to " + std::to_string(kMaxMembers) + ' ' + what + " are wanted");
  }

  // Every function of a generated class has a name of its own, which no type has.
  static void Take(const Node& node, std::set<std::string>* taken,
                   const std::vector<std::string>& names) {
    for (const std::string& name : names) {
      if (!taken->insert(name).second) {
        node.Fail("the generated code has the name " + name + " already");
      }
    }
  }

  Type ReadType(const Node& node) const {
    Type type = ParseType(node);
    if (!FindBasicType(type.base) && type_names_.count(type.base) == 0) {
      node.Fail("there is no type \"" + type.base + '"');
    }
    return type;
  }

  std::optional<Type> ReadOptionalType(const Node& node, const char* key) const {
    if (!node.json.contains(key)) return {};
    return ReadType(node.At(key));
  }

  // C++ wants a struct before another that has a field of it.
  void SortStructs() {
    std::vector<Struct> sorted;
    std::set<std::string> done;
    for (const Struct& one : description_.structs) Place(one, {}, &done, &sorted);
    description_.structs = std::move(sorted);
  }

  // Puts a struct behind those that it names. `within` are the structs that name it.
  void Place(const Struct& one, std::set<std::string> within, std::set<std::string>* done,
             std::vector<Struct>* sorted) const {
    if (done->count(one.name) != 0) return;
    within.insert(one.name);
    for (const Field& field : one.fields) {
      const auto named =
          std::find_if(description_.structs.begin(), description_.structs.end(),
                       [&field](const Struct& other) { return other.name == field.type.base; });
      const bool is_own_list = field.type.base == one.name && !field.type.around.empty() &&
                               field.type.around.front() == '[';
      if (named == description_.structs.end() || is_own_list) continue;
      if (within.count(named->name) != 0) {
        node_.At("structs")
            .At(one.name)
            .At(field.name)
            .Fail("the struct would hold itself; only as a list of its own it may");
      }
      Place(*named, within, done, sorted);
    }
    done->insert(one.name);
    sorted->push_back(one);
  }

  const Node& node_;
  Description description_;
  std::set<std::string> type_names_;
  std::set<std::string> client_names_;  // The names within the generated class.
  std::set<std::string> server_names_;
};

}  // namespace

const BasicType* FindBasicType(std::string_view name) {
  for (const BasicType& type : kBasicTypes) {
    if (type.name == name) return &type;
  }
  return nullptr;
}

Description ReadDescription(const std::string& text) {
  const Json json = desk::ParseJson(text);
  return Reader(Node{json, ""}).Read();
}

std::string ToText(const Type& type) {
  std::string text = type.base;
  for (const char kind : type.around) text += kind == '[' ? "[]" : kind == '{' ? "{}" : "?";
  return text;
}

std::string ToCppName(std::string_view name) {
  std::string cpp;
  bool is_first = true;
  for (const char c : name) {
    if (!IsSeparator(c)) cpp += is_first && IsLower(c) ? static_cast<char>(c - 'a' + 'A') : c;
    is_first = IsSeparator(c);
  }
  return cpp;
}

bool IsUsableName(std::string_view name) {
  const auto is_part = [](char c) { return IsLower(c) || IsUpper(c) || IsDigit(c) || c == '_'; };
  return !name.empty() && (IsLower(name[0]) || IsUpper(name[0])) &&
         std::all_of(name.begin(), name.end(), is_part) &&
         name.find("__") == std::string_view::npos &&
         kTakenNames.find(' ' + std::string(name) + ' ') == std::string_view::npos;
}

}  // namespace tools
