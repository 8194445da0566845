#include "tools/proxy_pipe.h"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "desk/common/transfer.h"

namespace tools {
namespace {

constexpr size_t kBlock = size_t{64} << 10;
constexpr size_t kMaxKeptRoom = size_t{1} << 20;  // For the next line, after a large one.

}  // namespace

ProxyPipe::ProxyPipe(int source, int target, ProxyStream stream, Hooks hooks)
    : source_(source), target_(target), stream_(std::move(stream)), hooks_(std::move(hooks)) {}

std::optional<ProxyPipe::Time> ProxyPipe::GetDue() const {
  return is_finished_ || WantsToWrite() ? std::nullopt : stream_.GetDue();
}

void ProxyPipe::Read(Time now) {
  const size_t before = received_.size();
  received_.resize(before + kBlock);
  const ssize_t size = recv(source_, received_.data() + before, kBlock, MSG_DONTWAIT);
  const int error = errno;
  received_.resize(before + static_cast<size_t>(size > 0 ? size : 0));
  if (size == 0 || (size < 0 && !desk::IsTransient(error))) has_ended_ = true;
  TakeLines(now);
  Write(now);
}

void ProxyPipe::TakeLines(Time now) {
  size_t begin = 0;
  for (size_t end; (end = received_.find('\n', searched_)) != std::string::npos;
       begin = searched_) {
    searched_ = end + 1;
    Put(received_.substr(begin, searched_ - begin), now);
  }
  received_.erase(0, begin);
  searched_ = received_.size();
  if (received_.empty() && received_.capacity() > kMaxKeptRoom) received_ = {};
  has_long_line_ = has_long_line_ || received_.size() > kMaxLine;
}

void ProxyPipe::Put(std::string line, Time now) {
  has_long_line_ = has_long_line_ || line.size() - 1 > kMaxLine;
  if (has_long_line_ || is_finished_) return;
  const ProxyRules::Set rules = hooks_.find_rules(line);
  stream_.Put({std::move(line), rules}, now);
}

void ProxyPipe::Write(Time now) {
  while (!is_finished_ && NextLine(now) && WriteSome()) {
    if (written_ < text_.size()) continue;
    text_.clear();
    hooks_.on_passed(rules_);
  }
  if (has_ended_ && !WantsToWrite() && !stream_.GetDue()) Finish();
}

// Returns whether there is a line to write. An unfinished one at the end of the stream is no
// message: no rule is for it, and it comes last, since whatever followed would become a part of it.
bool ProxyPipe::NextLine(Time now) {
  if (WantsToWrite()) return true;
  auto line = stream_.Take(now);
  const bool is_at_end = !line && has_ended_ && !has_long_line_ && !stream_.GetDue();
  if (is_at_end) line = ProxyLine{std::exchange(received_, {}), 0};
  if (!line) return false;
  text_ = std::move(line->text);
  rules_ = line->rules;
  written_ = 0;
  return WantsToWrite();
}

// Returns whether the target may take more.
bool ProxyPipe::WriteSome() {
  const ssize_t size =
      send(target_, text_.data() + written_, text_.size() - written_, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (size >= 0) {
    written_ += static_cast<size_t>(size);
    return true;
  }
  if (errno == EINTR) return true;
  if (!desk::IsTransient(errno)) Fail();
  return false;
}

void ProxyPipe::Fail() {
  has_ended_ = true;
  text_.clear();
  received_ = {};
  stream_.Clear();
  shutdown(source_, SHUT_RD);
  Finish();
}

void ProxyPipe::Finish() {
  if (std::exchange(is_finished_, true)) return;
  shutdown(target_, SHUT_WR);
}

}  // namespace tools
