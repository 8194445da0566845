#include "tools/check_list.h"

#include <signal.h>
#include <sys/stat.h>

#include <cstdint>
#include <set>
#include <utility>

#include "desk/common/value_json.h"
#include "desk/runtime_manager/supervisor.h"
#include "tools/printable.h"
#include "tools/records.h"

namespace tools {
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;
using Clock = Wire::Clock;

constexpr char kConnect[] = "flrpc.connected";
constexpr char kUnknown[] = "tavo.check.unknown";
constexpr int kHandshakes = 4;  // What a client tries.
constexpr int kInFlight = 1000;
constexpr int kUnread = 100;  // Requests that fit into the buffers of a socket.
constexpr size_t kLargePayload = size_t{1} << 20;
constexpr size_t kDepth = 100'000;
constexpr size_t kShown = 60;  // Columns of what the task has answered.
constexpr auto kSilence = std::chrono::milliseconds(200);
constexpr auto kGrace = std::chrono::seconds(desk::kTermGraceSeconds);
constexpr auto kKillGrace = kGrace + std::chrono::seconds(5);

// ---- Conversations ----

std::string MakeRequest(const std::string& id, const char* method = kUnknown,
                        EncodableValue params = {}) {
  return MakeFrame(Message::CreateRequest(Message::ID(id), method, std::move(params)));
}

std::string Show(Clock::duration time) {
  return ShowDuration(std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

std::string ShowError(const Message::Error& error) {
  return "error " + std::to_string(error.code) + ": " + Fit(error.message, kShown);
}

// In words that follow "answered with".
std::string ShowAnswer(const Message& message) {
  if (const auto* error = message.GetError()) return ShowError(*error) + " of no request";
  const Message::Response& response = *message.GetResponse();
  if (const auto* error = response.GetError()) return ShowError(*error);
  return "the result " + Fit(desk::ToText(*response.GetResult()), kShown);
}

// Throws for an answer that nobody has asked for.
void Refuse(const Message& message) {
  const auto* response = message.GetResponse();
  throw Finding("it answered with " + ShowAnswer(message) +
                (response ? ", id " + Fit(response->id.GetText(), kShown) : ""));
}

void AllowParseError(const Message& message) {
  const auto* response = message.GetResponse();
  const auto* error = response ? response->GetError() : message.GetError();
  if (!error || error->code != flrpc::kParseError) Refuse(message);
}

// Returns the response to the request. What the task notifies and asks is left alone; every other
// answer goes to `judge`.
Message AwaitAnswer(Wire& wire, const std::string& id, const std::string& missing,
                    const std::function<void(const Message& other)>& judge = Refuse) {
  for (const auto deadline = wire.GetDeadline();;) {
    Message message = wire.Receive(deadline, missing);
    const auto* response = message.GetResponse();
    if (response && response->id == id) return message;
    if (response || message.IsError()) judge(message);
  }
}

// An answer that nobody has asked for may come later than that of the next request.
void AwaitSilence(Wire& wire, const std::function<void(const Message& other)>& judge = Refuse) {
  const auto deadline = Clock::now() + kSilence;
  while (const auto message = wire.Receive(deadline)) {
    if (message->GetResponse() || message->IsError()) judge(*message);
  }
}

// A server that is not ready yet may answer with an error a few times.
void Shake(Wire& wire) try {
  wire.Connect();
  for (int i = 1;; ++i) {
    const std::string id = "handshake_" + std::to_string(i);
    wire.Send(MakeRequest(id, kConnect));
    const Message answer = AwaitAnswer(wire, id, "no answer to the handshake");
    if (!answer.GetResponse()->IsError()) return;
    if (i == kHandshakes) throw Finding("it answered the handshake with " + ShowAnswer(answer));
  }
} catch (const Finding& finding) {
  throw NoHandshake(finding.what());
}

// ---- Single messages ----

std::string CheckHandshake(Wire& wire, std::chrono::microseconds limit) {
  Shake(wire);
  const auto time = Clock::now() - wire.GetProcess().GetStart();
  if (time > limit) throw Finding("answered after " + Show(time) + ", not within " + Show(limit));
  return "answered " + Show(time) + " after the start";
}

std::string CheckUnknownMethod(Wire& wire) {
  Shake(wire);
  wire.Send(MakeRequest("check_1"));
  const Message answer = AwaitAnswer(wire, "check_1", "no answer to a request");
  const auto* error = answer.GetResponse()->GetError();
  if (!error || error->code != flrpc::kMethodNotFound) {
    throw Finding("answered with " + ShowAnswer(answer) + ", not with error -32601");
  }
  return ShowError(*error);
}

std::string CheckNotifications(Wire& wire) {
  Shake(wire);
  for (const char* method : {kUnknown, kConnect}) {
    wire.Send(MakeFrame(Message::CreateNotification(method, 1)));
  }
  wire.Send(MakeRequest("check_1"));
  AwaitAnswer(wire, "check_1", "no answer to the request behind them");
  AwaitSilence(wire);
  return "silence; the next request is answered";
}

// ---- Malformed input ----

std::string MakeValue(const EncodableValue& value) {
  const forge::Buffer bytes = value.Serialize();
  return MakeFrame(bytes.ToBase64());
}

std::string MakeBytes(const std::vector<uint8_t>& bytes) {
  return MakeFrame(forge::Buffer(bytes).ToBase64());
}

// A call whose members are these, besides the version.
std::string MakeCall(EncodableMap members) {
  members.emplace("jsonrpc", "2.0");
  return MakeValue(EncodableValue(std::move(members)));
}

std::vector<uint8_t> MakeDamagedValue() {
  const forge::Buffer whole =
      Message::CreateRequest(Message::ID("check_0"), kUnknown, "text").ToEncodable().Serialize();
  return {whole.GetData(), whole.GetData() + whole.GetSize() / 2};
}

std::vector<uint8_t> MakeDeepValue() {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < kDepth; ++i) bytes.insert(bytes.end(), {0x0c, 0x01});
  return bytes;
}

// Nothing or -32700 comes for each of them, and the next request is answered.
std::string CheckMalformed(Wire& wire, const std::vector<std::string>& inputs) {
  Shake(wire);
  int errors = 0;
  int count = 0;
  const auto judge = [&errors](const Message& message) {
    AllowParseError(message);
    ++errors;
  };
  for (const std::string& input : inputs) {
    const std::string id = "check_" + std::to_string(++count);
    wire.Send(input + MakeRequest(id));
    try {
      AwaitAnswer(wire, id, "no answer to the next request", judge);
    } catch (const Finding& finding) {
      throw Finding("after " + Fit(input, kShown) + ' ' + finding.what());
    }
  }
  AwaitSilence(wire, judge);
  return std::string(errors > 0 ? "error -32700" : "silence") + "; the next request is answered";
}

std::vector<std::pair<const char*, std::vector<std::string>>> MakeMalformed() {
  return {
      {"no-json",
       {"this is no JSON\n", "\n", "{\"data\":\n", "\xff\xfe\n", "{\"data\":\"\xff\"}\n",
        std::string(kDepth, '[') + '\n'}},
      {"no-object", {"[1,2]\n", "5\n", "null\n", "\"data\"\n"}},
      {"no-data", {"{}\n", "{\"other\":1}\n", "{\"data\":5}\n", "{\"data\":null}\n"}},
      {"no-base64", {MakeFrame("?!"), MakeFrame("AAA"), MakeFrame("AA=A"), MakeFrame("")}},
      {"damaged-value",
       {MakeBytes(MakeDamagedValue()), MakeBytes(std::vector<uint8_t>{0x7f}),
        MakeBytes(std::vector<uint8_t>{0x07, 0xff, 0xff, 0xff, 0xff, 0xff}),
        MakeBytes(std::vector<uint8_t>{0x0d, 0xff, 0xff, 0xff, 0xff, 0x7f})}},
      {"deep-value", {MakeBytes(MakeDeepValue())}},
      {"no-message",
       {MakeValue(EncodableValue(5)), MakeValue(EncodableValue(EncodableList())), MakeCall({}),
        MakeValue(EncodableValue(EncodableMap{{"method", kUnknown}, {"id", "check_0"}}))}},
      {"no-method",
       {MakeCall({{"id", "check_0"}, {"method", ""}}), MakeCall({{"id", "check_0"}, {"method", 5}}),
        MakeCall({{"id", "check_0"}})}},
      {"request-without-id",
       {MakeCall({{"method", kUnknown}}),
        MakeCall({{"method", kUnknown}, {"id", EncodableValue()}}),
        MakeCall({{"method", kUnknown}, {"id", EncodableList()}})}},
      {"stray-answer",
       {MakeFrame(Message::CreateResponse(Message::ID("nobody"), 1)),
        MakeFrame(Message::CreateError(Message::ID("nobody"), 5, "no", {})),
        MakeFrame(Message::CreateError(flrpc::kParseError, "no", {}))}},
  };
}

// ---- Much ----

std::string CheckInFlight(Wire& wire) {
  Shake(wire);
  std::set<std::string> waiting;
  for (int i = 1; i <= kInFlight; ++i) {
    const std::string id = "check_" + std::to_string(i);
    wire.Send(MakeRequest(id));
    waiting.insert(id);
  }
  const auto start = Clock::now();
  const auto deadline = wire.GetDeadline();
  while (!waiting.empty()) {
    const std::string missing = std::to_string(waiting.size()) + " of 1000 requests not answered";
    const Message message = wire.Receive(deadline, missing);
    const auto* response = message.GetResponse();
    if (message.IsError() || (response && waiting.erase(response->id.GetText()) == 0)) {
      Refuse(message);
    }
  }
  const auto time = Clock::now() - start;
  wire.Send(MakeRequest("check_0"));
  AwaitAnswer(wire, "check_0", "no answer to the next request");
  AwaitSilence(wire);
  return "1000 requests answered, each once, within " + Show(time);
}

std::string CheckLargePayload(Wire& wire) {
  Shake(wire);
  wire.Send(MakeRequest("check_1", kUnknown, std::string(kLargePayload, 'x')));
  const Message answer = AwaitAnswer(wire, "check_1", "no answer to 1 MiB");
  wire.Send(MakeRequest("check_2"));
  AwaitAnswer(wire, "check_2", "no answer to the next request");
  return "1 MiB answered with " + ShowAnswer(answer);
}

// ---- Ends ----

// The task exits after the end of its connection, or serves the next one.
std::string CheckAfterEnd(Wire& wire) {
  CheckedProcess& process = wire.GetProcess();
  try {
    wire.Flush();  // The task may exit before everything is written.
    wire.Connect();
    wire.Send(MakeRequest("next_1", kConnect) + MakeRequest("next_2"));
    AwaitAnswer(wire, "next_2", "it has not exited, and the next connection had no answer",
                [](const Message&) {});
    return "it serves the next connection";
  } catch (const ConnectionLost&) {
    if (!process.AwaitEnd(wire.GetDeadline())) throw;
  }
  if (process.GetSignal() != 0) throw Finding("it " + process.GetEnd());
  return "it " + process.GetEnd();
}

std::string CheckAbruptEnd(Wire& wire) {
  Shake(wire);
  const std::string line = MakeRequest("check_1");
  wire.Send(line.substr(0, line.size() / 2));
  return CheckAfterEnd(wire);
}

std::string CheckUnreadAnswers(Wire& wire) {
  Shake(wire);
  wire.RefuseAnswers();
  for (int i = 1; i <= kUnread; ++i) wire.Send(MakeRequest("check_" + std::to_string(i)));
  return CheckAfterEnd(wire);
}

// Returns how the task has ended at SIGTERM.
std::string EndByTerm(Wire& wire) {
  CheckedProcess& process = wire.GetProcess();
  const auto start = Clock::now();
  process.Terminate();
  if (!process.AwaitEnd(start + kKillGrace)) throw Finding("it cannot be ended");
  const auto time = Clock::now() - start;
  const int signal = process.GetSignal();
  if (signal == SIGKILL && time >= kGrace)
    throw Finding("it had to be killed after " + Show(kGrace));
  if (signal != 0 && signal != SIGTERM) throw Finding("it " + process.GetEnd());
  if (time >= kGrace)
    throw Finding("processes of its group had to be killed after " + Show(kGrace));
  return "it " + process.GetEnd() + " after " + Show(time);
}

std::string CheckTerm(Wire& wire) {
  Shake(wire);
  return EndByTerm(wire);
}

// The supervisor kills the task when the grace is over.
std::string CheckStarterGone(Wire& wire) {
  Shake(wire);
  const auto start = Clock::now();
  wire.Close();
  const bool is_gone = wire.GetProcess().Abandon(start + kGrace);
  const auto time = Clock::now() - start;
  if (!is_gone || time >= kGrace) throw Finding("it was there after " + Show(kGrace));
  return "it has ended after " + Show(time);
}

std::string CheckLeftovers(Wire& wire) {
  Shake(wire);
  const std::set<std::string> sockets = wire.GetProcess().FindSockets();
  EndByTerm(wire);
  const std::string processes = wire.GetProcess().FindLeftovers(wire.GetDeadline());
  if (!processes.empty()) throw Finding("it left behind " + processes);
  for (const std::string& path : sockets) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode))
      throw Finding("it left behind the socket " + path);
  }
  return "no process and no socket";
}

}  // namespace

std::vector<Check> MakeChecks(std::chrono::microseconds handshake_limit) {
  std::vector<Check> checks = {
      {"handshake", [=](Wire& wire) { return CheckHandshake(wire, handshake_limit); }},
      {"unknown-method", CheckUnknownMethod},
      {"notifications", CheckNotifications},
  };
  for (auto& [name, inputs] : MakeMalformed()) {
    checks.push_back(
        {name, [inputs = inputs](Wire& wire) { return CheckMalformed(wire, inputs); }});
  }
  const Check others[] = {
      {"in-flight", CheckInFlight},   {"large-payload", CheckLargePayload},
      {"abrupt-end", CheckAbruptEnd}, {"unread-answers", CheckUnreadAnswers},
      {"sigterm", CheckTerm},         {"starter-gone", CheckStarterGone},
      {"leftovers", CheckLeftovers},
  };
  checks.insert(checks.end(), std::begin(others), std::end(others));
  return checks;
}

}  // namespace tools
