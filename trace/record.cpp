#include "trace/record.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

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

// The file is looked for again later, when the host may have changed its directory. Without a
// directory the path stays as it is.
std::string MakeAbsolute(const char* path) {
  std::error_code error;
  const auto absolute = std::filesystem::absolute(path, error);
  return error ? path : absolute.string();
}

// Returns the path with the number of this process in the place of "%p".
std::string GetPath(std::string path) {
  constexpr std::string_view kProcess = "%p";
  const auto at = path.find(kProcess);
  return at == std::string::npos ? path
                                 : path.replace(at, kProcess.size(), std::to_string(getpid()));
}

}  // namespace

Record::Record(const char* path) : path_(MakeAbsolute(path)), limit_(GetLimit()) { OpenRing(); }

Record* Record::Get() noexcept {
  static Record* const record = [] {
    Record* const opened = Open();
    if (!opened) return opened;
    // A forked process must not inherit a mutex that another thread holds, nor keep the files of
    // its parent, whose lock would outlive the parent.
    pthread_atfork([] { Get()->mutex_.lock(); }, [] { Get()->mutex_.unlock(); },
                   [] {
                     Get()->ring_.reset();
                     Get()->mutex_.unlock();
                   });
    // Later than what is made later: the real library's manager, which ends conversations.
    std::atexit([] { Get()->Close(); });
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
      if (!is_over_) body();
    } catch (const FileInUse&) {  // The files were removed, and another process has made new ones.
      ring_.reset();
      TellOfUse();
    } catch (const std::exception& error) {
      Report("nothing more is recorded: TAVO_TRACE_FILE: ", error.what());
      is_over_ = true;
      ring_.reset();
    }
    line_.clear();
    if (line_.capacity() > kKeptLine) std::string().swap(line_);
  }
  errno = error_before;
}

void Record::OpenRing() {
  try {
    ring_.emplace(GetPath(path_), limit_);
  } catch (const FileInUse&) {  // Then there is no ring.
  }
}

void Record::TellOfUse() {
  if (std::exchange(is_told_, true)) return;
  Report("a conversation is not recorded: TAVO_TRACE_FILE: ", FileInUse().what());
}

bool Record::Begin(bool must_be_told) noexcept {
  bool is_recorded = false;
  Guard([&] {
    if (!ring_ || !ring_->IsIntact()) OpenRing();
    is_recorded = ring_.has_value();
    if (!is_recorded && must_be_told) TellOfUse();
  });
  return is_recorded;
}

void Record::Close() noexcept {
  Guard([this] {
    is_over_ = true;
    ring_.reset();
  });
}

void Record::AddMessage(const std::string& members, std::string_view direction,
                        std::string_view text) noexcept {
  Guard([&] {
    if (!ring_) return;
    line_.append(members).append(",\"direction\":\"").append(direction).append("\",");
    AppendTime();
    AppendMessage(text);
  });
}

void Record::AddEvent(const char* event, const std::string& members, const char* cause) noexcept {
  Guard([&] {
    if (!ring_) return;
    line_.append("{\"event\":\"").append(event).append("\",").append(members).push_back(',');
    if (cause) {
      const std::string_view head = Cut(cause);
      line_.append("\"cause\":");
      AppendJsonText(&line_, head);
      line_.push_back(',');
    }
    AppendTime();
    line_.append("}\n");
    AppendLine();
  });
}

void Record::AddIntent(std::string_view intent, const char* uri) noexcept {
  Guard([&] {
    if (!ring_) return;
    line_.append("{\"intent\":");
    AppendJsonText(&line_, intent);
    line_.push_back(',');
    if (uri) {
      const std::string_view head = Cut(uri);
      line_.append("\"parameters\":{\"uri\":");
      AppendJsonText(&line_, head);
      line_.append("},");
    }
    line_.append("\"pid\":").append(std::to_string(getpid())).push_back(',');
    AppendTime();
    line_.append("}\n");
    AppendLine();
  });
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
  const auto microseconds = int64_t{monotonic.tv_sec} * 1000000 + monotonic.tv_nsec / 1000;
  const std::string milliseconds = std::to_string(1000 + wall.tv_nsec / 1000000);
  line_.append("\"monotonic\":").append(std::to_string(microseconds));
  line_.append(",\"time\":\"").append(second_text_).append(1, '.');
  line_.append(milliseconds, 1).append("Z\"");
}

// Returns as much of the text as is recorded, however it is escaped. The size of a longer one is
// recorded before it.
std::string_view Record::Cut(std::string_view text) {
  const size_t max = ring_->GetMaxLine() / 8;  // An escaped byte takes six.
  if (text.size() > max) line_.append("\"size\":").append(std::to_string(text.size()) + ',');
  return text.substr(0, max);
}

// Only an extraordinary name makes an entry longer than a file may be.
void Record::AppendLine() {
  if (line_.size() <= ring_->GetMaxLine()) ring_->Append({line_});
}

// Without a copy of the text, if it need not be escaped.
void Record::AppendMessage(std::string_view text) {
  constexpr std::string_view kBegin = ",\"message\":{\"data\":";
  constexpr std::string_view kEnd = "}}\n";
  constexpr std::string_view kPlainEnd = "\"}}\n";
  const size_t before = line_.size();
  const size_t max = ring_->GetMaxLine();
  line_.append(kBegin);
  if (text.size() < max && IsPlain(text)) {
    line_.push_back('"');
    const size_t size = line_.size() + text.size() + kPlainEnd.size();
    if (size <= max) return ring_->Append({line_, text, kPlainEnd});
  } else if (text.size() < max) {
    AppendJsonText(&line_, text);
    line_.append(kEnd);
    if (line_.size() <= max) return ring_->Append({line_});
  }
  line_.resize(before);
  AppendShortMessage(text);
}

// A message that no file of the ring may hold is told by its size and the beginning of its text.
void Record::AppendShortMessage(std::string_view text) {
  constexpr size_t kFrame = sizeof "{\"data\":\"\"}" - 1;
  line_.append(",\"message\":null,\"size\":").append(std::to_string(text.size() + kFrame));
  const std::string_view head = text.substr(0, kHead);
  if (IsPlain(head)) {
    line_.append(",\"head\":");
    AppendJsonText(&line_, head);
  }
  line_.append("}\n");
  AppendLine();
}

}  // namespace trace
