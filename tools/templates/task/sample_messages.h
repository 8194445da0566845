// What is said to the task "sample":
//
//   request "greet" Name -> Greeting
#pragma once

#include <kit/describe.h>

#include <string>

namespace sample_messages {

struct Name {
  std::string name;
};
TAVO_DESCRIBE(Name, name)

struct Greeting {
  std::string text;
};
TAVO_DESCRIBE(Greeting, text)

}  // namespace sample_messages
