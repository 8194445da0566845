#include "trace/settings.h"

#include <charconv>
#include <cstdlib>
#include <system_error>

#include "trace/report.h"

namespace trace {

const char* GetSetting(const char* variable) {
  const char* const text = secure_getenv(variable);
  return text && *text ? text : nullptr;
}

std::optional<uint64_t> ReadSize(std::string_view text) {
  constexpr struct {
    std::string_view name;
    int shift;
  } kUnits[] = {{"", 0}, {"B", 0}, {"KiB", 10}, {"MiB", 20}, {"GiB", 30}};
  uint64_t number = 0;
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (error != std::errc()) return std::nullopt;
  const std::string_view name(end, static_cast<size_t>(last - end));
  for (const auto& unit : kUnits) {
    if (name == unit.name && number <= UINT64_MAX >> unit.shift) return number << unit.shift;
  }
  return std::nullopt;
}

uint64_t GetLimit() {
  const char* const text = GetSetting("TAVO_TRACE_LIMIT");
  if (!text) return kDefaultLimit;
  const auto limit = ReadSize(text);
  if (limit && *limit >= kMinLimit) return *limit;
  Report("TAVO_TRACE_LIMIT is no size of at least 8KiB, so 16MiB count: ", text);
  return kDefaultLimit;
}

}  // namespace trace
