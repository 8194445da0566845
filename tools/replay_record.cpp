#include "tools/replay_record.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "cw/map_access.h"
#include "tools/message_of.h"
#include "tools/printable.h"
#include "tools/record_reader.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

using flrpc::Message;
using Got = ILineSource::Got;

constexpr char kConnect[] = "flrpc.connected";
constexpr size_t kMaxSize = size_t{256} << 20;  // Of all messages that are kept.
constexpr size_t kMaxMessages = 1'000'000;
constexpr int64_t kMaxTime = 1'000'000'000'000;  // Microseconds: eleven days.

struct Line {
  std::string text;
  size_t number = 0;
};

// Keeps the last line of a source: an entry has no message that could be sent again.
class KeepingSource final : public ILineSource {
 public:
  KeepingSource(std::unique_ptr<ILineSource> source, Line* last)
      : source_(std::move(source)), last_(last) {}

  Got Next(std::string* line, std::chrono::steady_clock::time_point deadline) override {
    const Got got = source_->Next(line, deadline);
    if (got == Got::kLine) *last_ = {*line, source_->GetLineNumber()};
    return got;
  }
  size_t GetLineNumber() const override { return source_->GetLineNumber(); }

 private:
  const std::unique_ptr<ILineSource> source_;
  Line* const last_;
};

// Follows one connection.
class ConversationReader {
 public:
  explicit ConversationReader(const Entry& first) {
    SetBegin(first);
    conversation_.connection = first.connection;
    conversation_.task = first.task;
    task_pid_ = first.task_pid;
  }

  // Returns false for a message that has no part in a replay.
  bool Take(const Entry& entry, const Message& message, RecordedMessage kept) {
    if (!is_connected_ && IsHandshake(entry, message)) return true;
    is_connected_ = is_connected_ || kept.is_to_task;
    const size_t index = conversation_.messages.size();
    if (const auto* request = message.GetRequest()) {
      if (!kept.is_to_task) return false;
      waiting_.emplace(request->id.GetText(), index);  // The oldest one gets the answer.
      kept.method = request->method;
      const std::string call = GetCall(request->params);
      if (!call.empty()) calls_[call] = index;
    } else if (const auto* response = message.GetResponse()) {
      const auto found = waiting_.find(response->id.GetText());
      if (kept.is_to_task || found == waiting_.end()) return false;
      kept.partner = found->second;
      kept.method = conversation_.messages[kept.partner].method;
      conversation_.messages[kept.partner].partner = index;
      waiting_.erase(found);
    } else {
      kept.method = message.GetNotification()->method;
      kept.call = GetCall(message.GetNotification()->params);
      const auto found = calls_.find(kept.call);
      if (found != calls_.end()) kept.partner = found->second;
    }
    kept.type = message.GetType();
    kept.at = GetTime(entry);
    conversation_.messages.push_back(std::move(kept));
    return true;
  }

  // `ended` are the tasks that have not been stopped.
  RecordedConversation Finish(const std::set<int64_t>& ended) {
    conversation_.has_ended = task_pid_ && ended.count(*task_pid_) > 0;
    return std::move(conversation_);
  }

 private:
  // A connecting request that gets an error is repeated.
  bool IsHandshake(const Entry& entry, const Message& message) {
    if (message.IsRequest(kConnect) && entry.direction == "to") {
      return handshakes_.insert(message.GetRequest()->id.GetText()).second;
    }
    const auto* response = message.GetResponse();
    if (!response || handshakes_.count(response->id.GetText()) == 0) return false;
    is_connected_ = response->HasResult();
    SetBegin(entry);
    return true;
  }

  void SetBegin(const Entry& entry) {
    begin_.wall = entry.wall;
    begin_.monotonic = entry.monotonic;
  }

  std::chrono::microseconds GetTime(const Entry& entry) {
    const std::chrono::microseconds time(
        std::min(GetTimeBetween(begin_, entry).value_or(0), kMaxTime));
    return last_ = std::max(last_, time);
  }

  RecordedConversation conversation_;
  std::optional<int64_t> task_pid_;
  std::map<std::string, size_t> waiting_;  // Requests by their identifiers.
  std::map<std::string, size_t> calls_;    // The same by the tokens of their calls.
  std::set<std::string> handshakes_;       // Identifiers.
  Entry begin_;                            // Its times alone.
  std::chrono::microseconds last_{0};
  bool is_connected_ = false;
};

class Reader {
 public:
  Reader(const std::string& command, const std::string& file)
      : file_(file),
        reader_(command, file,
                std::make_unique<KeepingSource>(OpenRecord(file, false), &last_line_)) {}

  Record Read() {
    Entry entry;
    for (Got got = Got::kNothing; got != Got::kEnd;) {
      got = reader_.Next(&entry, std::chrono::steady_clock::time_point::max());
      if (got != Got::kLine) continue;
      if (entry.IsFrame()) Take(entry);
      if (entry.kind == Entry::Kind::kEvent) TakeEvent(entry);
    }
    for (ConversationReader* reader : order_) {
      record_.conversations.push_back(reader->Finish(ended_));
    }
    try {
      reader_.ThrowIfDamaged();
    } catch (const CommandError& error) {
      record_.damage = error.what();
    }
    return std::move(record_);
  }

 private:
  void Take(const Entry& entry) {
    const bool is_message = entry.kind == Entry::Kind::kRequest ||
                            entry.kind == Entry::Kind::kResponse ||
                            entry.kind == Entry::Kind::kNotification;
    // A damaged frame may still look like a message, with values that nobody has sent.
    if (!is_message || !entry.fault.empty()) {
      ++record_.left_out;
      return;
    }
    RecordedMessage kept;
    kept.is_to_task = entry.direction == "to";
    kept.line = last_line_.number;
    // ReadEntry has seen that all of this is there.
    kept.data = nlohmann::json::parse(last_line_.text)["message"]["data"].get<std::string>();
    const Message message = *MessageOf(DecodeValue(kept.data));
    CountSize(kept.data.size());
    if (!Find(entry).Take(entry, message, std::move(kept))) ++record_.left_out;
  }

  void TakeEvent(const Entry& entry) {
    if (entry.event != "end" && entry.event != "loss") return;
    const auto members = nlohmann::json::parse(last_line_.text);
    const auto stopped = members.find("stopped");
    const bool is_stopped = stopped != members.end() && *stopped == true;
    // A device's trace does not know how the task has ended.
    const bool is_known =
        entry.event == "loss" || members.contains("status") || members.contains("signal");
    if (entry.task_pid && is_known && !is_stopped) ended_.insert(*entry.task_pid);
  }

  ConversationReader& Find(const Entry& entry) {
    const auto [found, is_new] =
        readers_.try_emplace({entry.connection, entry.task}, ConversationReader(entry));
    if (is_new) order_.push_back(&found->second);
    return found->second;
  }

  void CountSize(size_t size) {
    size_ += size;
    if (size_ <= kMaxSize && ++count_ <= kMaxMessages) return;
    throw CommandError(kFailed, file_ +
                                    ": the record is too large to be repeated: it has more than " +
                                    std::to_string(kMaxMessages) + " messages or 256 MiB of them");
  }

  const std::string file_;
  Line last_line_;
  RecordReader reader_;
  std::map<std::pair<std::string, std::string>, ConversationReader> readers_;
  std::vector<ConversationReader*> order_;
  std::set<int64_t> ended_;  // Tasks by their processes.
  Record record_;
  size_t size_ = 0;
  size_t count_ = 0;
};

// ---- Selection ----

std::string ListTasks(const Record& record) {
  std::set<std::string> tasks;
  for (const auto& conversation : record.conversations) tasks.insert(conversation.task);
  std::string list;
  for (const std::string& task : tasks) list += (list.empty() ? "" : ", ") + Fit(task, 80);
  return list;
}

void Select(const RecordSelection& selection, Record* record) {
  auto& all = record->conversations;
  const auto is_of_first = [&](const auto& one) { return one.task == all.front().task; };
  const auto is_of_task = [&](const auto& one) { return one.task == selection.task; };
  const bool is_free =
      !selection.connection.empty() || (std::all_of(all.begin(), all.end(), is_of_first) &&
                                        std::none_of(all.begin(), all.end(), is_of_task));
  const auto is_other = [&](const auto& one) {
    const bool is_wanted = selection.connection.empty() || one.connection == selection.connection;
    return !is_wanted || !(is_free || is_of_task(one));
  };
  if (all.empty()) throw CommandError(kFailed, selection.file + ": it holds no conversation");
  const std::string tasks = ListTasks(*record);
  all.erase(std::remove_if(all.begin(), all.end(), is_other), all.end());
  if (!all.empty()) return;
  const std::string what = selection.connection.empty()
                               ? "conversation of \"" + selection.task + "\""
                               : "connection \"" + selection.connection + "\"";
  throw CommandError(kFailed, selection.file + ": no " + what + "; it has those of " + tasks);
}

}  // namespace

std::string GetCall(const cw::EncodableValue& params) {
  const auto* call = cw::Find(&params, "$call");
  if (!call) return "";
  const forge::Buffer bytes = call->Serialize();
  return {reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize()};
}

Record ReadRecord(const std::string& command, const RecordSelection& selection) {
  Record record = Reader(command, selection.file).Read();
  Select(selection, &record);
  return record;
}

}  // namespace tools
