#include "trace/record.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>

#include "trace/json_text.h"
#include "trace/report.h"
#include "trace/settings.h"

namespace trace {
namespace {

constexpr size_t kKeptLine = 64 << 10;  // In bytes. More memory is given back after a line.
constexpr size_t kHead = 1 << 10;       // In characters: a multiple of four, as Base64 needs.

Record* Open() noexcept {
  const char* const path = GetSetting("TAVO_TRACE_FILE");
  if (!path) return nullptr;
  try {
    return new Record(path);
  } catch (const std::exception& error) {
    Report("nothing is recorded: TAVO_TRACE_FILE: ", error.what());
    return nullptr;
  }
}

timespec GetTime(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return time;
}

}  // namespace

Record::Record(const char* path) : ring_(std::in_place, path, GetLimit()) {}

Record* Record::Get() noexcept {
  static Record* const record = [] {
    Record* const opened = Open();
    // A forked process must not inherit a lock that another thread holds.
    if (opened)
      pthread_atfork([] { Get()->mutex_.lock(); }, [] { Get()->mutex_.unlock(); },
                     [] { Get()->mutex_.unlock(); });
    return opened;
  }();
  return record;
}

template <typename Body>
void Record::Guard(const Body& body) noexcept {
  const int error_before = errno;
  {
    const std::lock_guard lock(mutex_);
    try {
      if (ring_) body();
    } catch (const std::exception& error) {
      Report("nothing more is recorded: TAVO_TRACE_FILE: ", error.what());
      ring_.reset();
    }
    line_.clear();
    if (line_.capacity() > kKeptLine) std::string().swap(line_);
  }
  errno = error_before;
}

void Record::AddMessage(const std::string& members, std::string_view direction,
                        std::string_view text) noexcept {
  Guard([&] {
    line_.append(members).append(",\"direction\":\"").append(direction).append("\",");
    AppendTime();
    AppendMessage(text);
    AppendLine();
  });
}

void Record::AddEvent(const char* event, const std::string& members, const char* cause) noexcept {
  Guard([&] {
    line_.append("{\"event\":\"").append(event).append("\",").append(members).push_back(',');
    if (cause) {
      line_.append("\"cause\":");
      AppendJsonText(&line_, cause);
      line_.push_back(',');
    }
    AppendTime();
    line_.append("}\n");
    AppendLine();
  });
}

void Record::AddIntent(std::string_view intent, const char* uri) noexcept {
  Guard([&] {
    line_.append("{\"intent\":");
    AppendJsonText(&line_, intent);
    if (uri) {
      line_.append(",\"parameters\":{\"uri\":");
      AppendJsonText(&line_, uri);
      line_.push_back('}');
    }
    line_.append(",\"pid\":").append(std::to_string(getpid())).push_back(',');
    AppendTime();
    line_.append("}\n");
    AppendLine();
  });
}

void Record::HoldAsStarter() noexcept {
  Guard([this] { ring_->HoldAsStarter(); });
}

bool Record::IsHeldByStarter() noexcept {
  bool is_held = false;
  Guard([&] { is_held = ring_->IsHeldByStarter(); });
  return is_held;
}

void Record::AppendTime() {
  const timespec monotonic = GetTime(CLOCK_MONOTONIC);
  const timespec wall = GetTime(CLOCK_REALTIME);
  if (wall.tv_sec != second_) {
    std::tm parts{};
    gmtime_r(&wall.tv_sec, &parts);
    std::strftime(second_text_, sizeof second_text_, "%Y-%m-%dT%H:%M:%S", &parts);
    second_ = wall.tv_sec;
  }
  char text[96];
  const int size =
      std::snprintf(text, sizeof text, "\"monotonic\":%lld,\"time\":\"%s.%03ldZ\"",
                    static_cast<long long>(monotonic.tv_sec) * 1000000 + monotonic.tv_nsec / 1000,
                    second_text_, static_cast<long>(wall.tv_nsec / 1000000));
  line_.append(text, static_cast<size_t>(size));
}

// Only an extraordinary name makes an entry longer than a file may be.
void Record::AppendLine() {
  if (line_.size() <= ring_->GetMaxLine()) ring_->Append(line_);
}

// A message that no file of the ring may hold is told by its size and the beginning of its text.
void Record::AppendMessage(std::string_view text) {
  constexpr std::string_view kBegin = ",\"message\":{\"data\":";
  constexpr std::string_view kEnd = "}}\n";
  const size_t before = line_.size();
  const size_t max = ring_->GetMaxLine();
  if (text.size() < max) {
    line_.append(kBegin);
    AppendJsonText(&line_, text);
    line_.append(kEnd);
    if (line_.size() <= max) return;
    line_.resize(before);
  }
  constexpr size_t kFrame = sizeof "{\"data\":\"\"}" - 1;
  line_.append(",\"message\":null,\"size\":").append(std::to_string(text.size() + kFrame));
  const std::string_view head = text.substr(0, kHead);
  if (IsPlain(head)) {
    line_.append(",\"head\":");
    AppendJsonText(&line_, head);
  }
  line_.append("}\n");
}

}  // namespace trace
