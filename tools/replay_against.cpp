#include "tools/replay_against.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <utility>

#include <QTimer>

#include "tools/session.h"
#include "tools/task_client.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;
using flrpc::Message;

// A connected server answers this request as an unknown method, behind what it has sent before.
constexpr char kFence[] = "flrpc.connected";
// Seconds. Without an answer, nothing more is waited for. The news of a lost task takes up to one.
constexpr double kFenceTime = 3;

class Replay {
 public:
  Replay(Session& session, const RecordedConversation& conversation, const ReplayPlan& plan,
         Differences& differences, ReplayCounts& counts)
      : session_(session),
        conversation_(conversation),
        messages_(conversation.messages),
        plan_(plan),
        differences_(differences),
        counts_(counts),
        has_come_(messages_.size(), false) {
    for (size_t i = 0; i < messages_.size(); ++i) {
      const bool is_notification = messages_[i].type == Message::Type::kNotification;
      if (!messages_[i].is_to_task && is_notification) {
        expected_[{messages_[i].method, messages_[i].call}].recorded.push_back(i);
      }
    }
  }

  // Goes through the record: sends what was sent, and waits for what came.
  void Run() {
    TaskClient task(session_, plan_.task);
    task_ = &task;
    session_.LimitTime(plan_.timeout, "the task \"" + plan_.task + "\" does not connect in time");
    task.Connect();
    begin_ = Clock::now();
    for (size_t i = 0; i < messages_.size(); ++i) {
      if (messages_[i].is_to_task) {
        WaitUntil(begin_ + messages_[i].at);
        Send(i);
        if (!plan_.is_fast) reached_ = messages_[i].at;
      } else if (!IsLeftOut(messages_[i])) {
        WaitFor(i);
        reached_ = messages_[i].at;
      }
    }
    WaitForFence();
  }

 private:
  struct Expected {
    std::vector<size_t> recorded;  // Notifications,
    size_t come = 0;               // and how many of them have come.
  };

  bool IsLeftOut(const RecordedMessage& message) const {
    return plan_.answers_only && message.type == Message::Type::kNotification;
  }

  // Messages go on coming.
  void WaitUntil(Clock::time_point time) {
    while (!plan_.is_fast && Clock::now() < time) {
      constexpr std::chrono::milliseconds kLongest = std::chrono::hours(1);
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now());
      QTimer timer;
      timer.setSingleShot(true);
      timer.setTimerType(Qt::PreciseTimer);
      timer.start(std::min(left, kLongest));
      session_.LimitTime(0, "");
      session_.RunUntil([&] {
        TakeNews();
        return !timer.isActive();
      });
    }
  }

  void WaitFor(size_t index) {
    const RecordedMessage& message = messages_[index];
    const bool is_answer = message.type == Message::Type::kResponse;
    session_.LimitTime(GetTimeout(index), "the task \"" + plan_.task + "\" has not sent the " +
                                              (is_answer ? "answer to \"" : "notification \"") +
                                              message.method + "\" of line " +
                                              std::to_string(message.line) + " in time");
    session_.RunUntil([&] {
      TakeNews();
      return has_come_[index];
    });
  }

  // What took long then may take long now: an answer since its request, a notification since what
  // was last waited for.
  double GetTimeout(size_t index) const {
    if (plan_.timeout <= 0) return plan_.timeout;
    const RecordedMessage& message = messages_[index];
    const bool is_answer = message.type == Message::Type::kResponse;
    const auto begin = is_answer ? messages_[message.partner].at : reached_;
    return plan_.timeout + std::chrono::duration<double>(message.at - begin).count();
  }

  void Send(size_t index) {
    const Message message = messages_[index].Decode();
    if (const auto* request = message.GetRequest()) {
      task_->SendRequest(request->method, request->params, [this, index](const auto& response) {
        answers_.emplace_back(index, response);
      });
    } else if (const auto* notification = message.GetNotification()) {
      task_->SendNotify(notification->method, notification->params);
    }
    ++counts_.sent;
  }

  // Outside of all callbacks, since it may throw.
  void TakeNews() {
    for (const auto& [request, response] : std::exchange(answers_, {})) {
      TakeAnswer(request, response);
    }
    TakeNotifications();
  }

  void TakeAnswer(size_t request, const Message::Response& response) {
    const std::string what = "the answer to \"" + messages_[request].method + '"';
    const size_t answer = messages_[request].partner;
    const Message now{Message::Response(response)};
    if (answer == kNoMessage) {
      return differences_.TellAdded(messages_[request].line, what, now);
    }
    differences_.Compare(messages_[answer].line, what, messages_[answer].Decode(), now);
    has_come_[answer] = true;
    ++counts_.answers;
  }

  // The notifications of a method, and of a call, are compared one by one in their order.
  void TakeNotifications() {
    for (const Message::Notification& notification : task_->TakeNotifications()) {
      if (plan_.answers_only) continue;
      const auto found = expected_.find({notification.method, GetCall(notification.params)});
      const std::string what = "the notification \"" + notification.method + '"';
      const Message now{Message::Notification(notification)};
      if (found == expected_.end() || found->second.come == found->second.recorded.size()) {
        differences_.TellAdded(0, what, now);
        continue;
      }
      const size_t index = found->second.recorded[found->second.come++];
      differences_.Compare(messages_[index].line, what, messages_[index].Decode(), now);
      has_come_[index] = true;
      ++counts_.notifications;
    }
  }

  // What the task has sent beyond the record comes before the answer. A task may answer nothing,
  // and may have ended when it did so in the record.
  void WaitForFence() {
    bool is_answered = false;
    try {
      task_->SendRequest(kFence, {}, [&](const auto&) { is_answered = true; });
      session_.LimitTime(kFenceTime, "");
      session_.RunUntil([&] {
        TakeNews();
        return is_answered;
      });
    } catch (const CommandError& error) {
      const bool is_late = error.GetExitCode() == kTimedOut;
      const bool is_lost = error.GetExitCode() == kNotStarted;
      if (!is_late && !(is_lost && conversation_.has_ended)) throw;
    }
  }

  Session& session_;
  const RecordedConversation& conversation_;
  const std::vector<RecordedMessage>& messages_;
  const ReplayPlan& plan_;
  Differences& differences_;
  ReplayCounts& counts_;
  std::vector<bool> has_come_;                                        // By the message.
  std::map<std::pair<std::string, std::string>, Expected> expected_;  // By the method and the call.
  std::vector<std::pair<size_t, Message::Response>> answers_;         // That nobody has looked at.
  TaskClient* task_ = nullptr;                                        // While Run is running.
  Clock::time_point begin_;                                           // Of the connection.
  std::chrono::microseconds reached_{0};                              // Since then, in the record.
};

}  // namespace

void ReplayAgainst(const RecordedConversation& conversation, const ReplayPlan& plan,
                   Differences& differences, ReplayCounts& counts) {
  RunSession([&](Session& session) {
    differences.PrintWith([&session](const std::string& line) { session.Print(line); });
    Replay(session, conversation, plan, differences, counts).Run();
  });
}

}  // namespace tools
