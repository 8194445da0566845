// What a task without code answers: the description of `tavo mock` (docs/tavo.md).
//
//   {"echo": {"result": "$params"}, "count": {"results": [1, 2, 3], "after": "1s"}}
//
// Threads: any; a plain value.
// Errors:  CommandError with kWrongUsage, the file and the place of what is wrong in it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cw/encodable_value.h"

namespace tools {

using MockTime = std::chrono::microseconds;

struct MockNotification {
  std::string method;
  cw::EncodableValue params;
  MockTime after{0};
  std::optional<MockTime> every;  // Of the schedule; empty: it is sent once.
};

struct MockMethod {
  struct Error {
    int32_t code = 0;
    std::string message;
    cw::EncodableValue data;
  };

  std::vector<cw::EncodableValue> results;  // Of the first calls; the last one also of all others.
  std::optional<Error> error;               // In the place of the results.
  MockTime after{0};
  std::vector<MockNotification> notify;
};

struct MockDescription {
  std::map<std::string, MockMethod> methods;
  std::vector<MockNotification> schedule;
};

MockDescription ReadMockDescription(const std::string& file);

// Returns the value with each text that is a reference ("$params", "$params.items[2]") replaced by
// that part of the parameters. Throws std::runtime_error with the reference when there is no such
// part.
cw::EncodableValue FillIn(const cw::EncodableValue& value, const cw::EncodableValue& params);

}  // namespace tools
