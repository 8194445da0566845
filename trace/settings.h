// What the environment tells the trace. A program with more rights than its user is not traced.
//
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace trace {

constexpr uint64_t kDefaultLimit = 16 << 20;  // In bytes.
constexpr uint64_t kMinLimit = 8 << 10;

// The variable's text; null when it is unset or empty.
const char* GetSetting(const char* variable);

// Reads a number of bytes, such as "65536", "64KiB", "16MiB" or "1GiB".
std::optional<uint64_t> ReadSize(std::string_view text);

// TAVO_TRACE_LIMIT. A text that is no size of at least kMinLimit is reported; the default counts.
uint64_t GetLimit();

}  // namespace trace
