#include "tools/check_wire.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "cw/encodable_value.h"
#include "cw/map_access.h"
#include "desk/common/transfer.h"
#include "desk/common/unix_socket.h"
#include "desk/runtime_manager/json_line.h"
#include "forge/buffer.h"
#include "tools/printable.h"
#include "tools/records.h"

namespace tools {
namespace {

using flrpc::Message;

constexpr size_t kMaxLine = size_t{32} << 20;  // As that of the desk.
constexpr size_t kBlock = size_t{1} << 16;
constexpr size_t kShown = 40;                // Columns of a text that the task has sent.
constexpr std::chrono::seconds kEndNews(1);  // For the news of why the connection was closed.

// The error of no request that was sent. Message takes what is no message as an error of its own
// making; a null as the id is no message, but is what an error of no request may have.
std::optional<Message::Error> FindError(const std::string& base64) {
  const auto value = cw::EncodableValue::Deserialize(forge::Buffer::FromBase64(base64));
  const auto* version = cw::Find(&value, "jsonrpc");
  const auto* id = cw::Find(&value, "id");
  const auto* error = cw::Find(&value, "error");
  if (!error || !version || *version != "2.0" || (id && !id->IsNull())) return std::nullopt;
  auto conversion = Message::Error::FromEncodable(*error);
  if (!conversion.succeeded) return std::nullopt;
  return std::move(conversion.error);
}

// Empty for a line of the task's own.
std::optional<Message> ReadMessage(const std::string& line) {
  QString fault;
  const auto object = desk::ParseLine(QByteArray::fromStdString(line), &fault);
  if (!object) throw Finding("it sent a line that is no JSON object: " + Fit(line, kShown));
  const QJsonValue data = object->value(QStringLiteral("data"));
  if (!data.isString()) return std::nullopt;
  const std::string text = data.toString().toStdString();
  Message message = Message::FromBase64(text);
  if (!message.IsEmpty() && !message.IsError()) return message;
  auto error = message.IsError() ? FindError(text) : std::nullopt;
  if (error) return Message::CreateError(*std::move(error));
  throw Finding("it sent a text that is no message: " + Fit(text, kShown));
}

}  // namespace

Wire::Wire(CheckedProcess& process, Clock::duration patience)
    : process_(process), patience_(patience) {}

Wire::~Wire() { Close(); }

std::string Wire::ShowPatience() const {
  return ShowDuration(std::chrono::duration_cast<std::chrono::microseconds>(patience_).count());
}

void Wire::Connect() {
  Close();
  descriptor_ = desk::AboveStandard(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (descriptor_ < 0) throw std::runtime_error(std::string("a socket: ") + std::strerror(errno));
  if (!desk::ConnectTo(descriptor_, process_.GetSocketPath())) ThrowLost();
}

void Wire::Close() {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
  outgoing_.clear();
  incoming_.clear();
  line_start_ = searched_ = 0;
}

void Wire::RefuseAnswers() { shutdown(descriptor_, SHUT_RD); }

void Wire::Flush() {
  const auto deadline = GetDeadline();
  while (!outgoing_.empty()) {
    if (!Wait(deadline, 0)) ThrowMissing("it did not read what was sent");
  }
}

std::optional<Message> Wire::Receive(Clock::time_point deadline) {
  for (std::string line; !process_.IsOver(deadline);) {
    while (!TakeLine(&line)) {
      if (!Wait(deadline, POLLIN)) return std::nullopt;
    }
    if (auto message = ReadMessage(line)) return message;
  }
  return std::nullopt;
}

Message Wire::Receive(Clock::time_point deadline, const std::string& missing) {
  auto message = Receive(deadline);
  if (!message) ThrowMissing(missing);
  return *std::move(message);
}

void Wire::ThrowMissing(const std::string& missing) const {
  throw Finding(missing + " within " + ShowPatience());
}

bool Wire::TakeLine(std::string* line) {
  const size_t end = incoming_.find('\n', searched_);
  if (end == std::string::npos) {
    searched_ = incoming_.size();
    if (searched_ - line_start_ <= kMaxLine) return false;
    throw Finding("it sent a line of more than 32 MiB");
  }
  line->assign(incoming_, line_start_, end - line_start_);
  line_start_ = searched_ = end + 1;
  return true;
}

// Returns whether there was time left. It may return before anything has come.
bool Wire::Wait(Clock::time_point deadline, short events) {
  if (process_.IsOver(deadline)) return false;
  const short output = outgoing_.empty() ? short{0} : short{POLLOUT};
  const int end_news = process_.GetDescriptor();
  pollfd polled[] = {{descriptor_, static_cast<short>(events | output), 0}, {end_news, POLLIN, 0}};
  if (poll(polled, 2, end_news < 0 ? 0 : CheckedProcess::kTick) < 0) return true;
  if ((polled[0].revents & POLLOUT) != 0) Write();
  if ((polled[0].revents & POLLIN) != 0) {
    Read();
  } else if ((polled[0].revents & (POLLHUP | POLLERR)) != 0 || process_.AwaitEnd(Clock::now())) {
    ThrowLost();  // Another process may hold the other end of a task that has ended.
  }
  return true;
}

void Wire::Read() {
  incoming_.erase(0, line_start_);
  searched_ -= std::exchange(line_start_, 0);
  char block[kBlock];
  const ssize_t size = recv(descriptor_, block, sizeof block, 0);
  if (size > 0) {
    incoming_.append(block, static_cast<size_t>(size));
  } else if (size == 0 || !desk::IsTransient(errno)) {
    ThrowLost();
  }
}

// A connection that is gone may still have something to be read.
void Wire::Write() {
  const ssize_t size = send(descriptor_, outgoing_.data(), outgoing_.size(), MSG_NOSIGNAL);
  if (size >= 0) {
    outgoing_.erase(0, static_cast<size_t>(size));
  } else if (!desk::IsTransient(errno)) {
    outgoing_.clear();
  }
}

void Wire::ThrowLost() {
  const bool has_ended = process_.AwaitEnd(Clock::now() + kEndNews);
  throw ConnectionLost(has_ended ? "it " + process_.GetEnd() : "it closed the connection");
}

std::string MakeFrame(const std::string& base64) { return "{\"data\":\"" + base64 + "\"}\n"; }

std::string MakeFrame(const Message& message) { return MakeFrame(message.ToBase64()); }

}  // namespace tools
