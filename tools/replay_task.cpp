#include "tools/replay_task.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

#include "cw/map_access.h"
#include "kit/responder.h"
#include "tools/session.h"
#include "tools/task_server.h"

namespace tools {
namespace {

using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::IReply;
using flrpc::Message;

// The turns are numbered. The first one is that of the connection.
constexpr size_t kConnection = 0;
constexpr size_t kNoTurn = ~size_t{0};
constexpr char kCall[] = "$call";  // What names a call of the kit, in its parameters.

// A message of the starter (null: its connection), and what the task sent until the next one. What
// belongs to a request is at that request.
struct Turn {
  const RecordedMessage* message = nullptr;
  std::vector<const RecordedMessage*> followers;
};

// The turns of equal messages, in their order.
struct EqualTurns {
  size_t TakeNext() { return turns[std::min(next++, turns.size() - 1)]; }

  std::vector<size_t> turns;
  size_t next = 0;
};

// Who is answered: nobody where the reply is null. `call` names the call of the kit, or is null.
struct Asked {
  std::shared_ptr<IReply> reply;
  EncodableValue call;
};

class Player {
 public:
  Player(Session& session, const std::vector<RecordedConversation>& conversations,
         const ReplayRole& role)
      : role_(role), turns_(1), task_(session) {
    size_t opening = kConnection;  // There is one connection, so the other openings have no turn.
    for (const RecordedConversation& conversation : conversations) {
      AddTurns(conversation, std::exchange(opening, kNoTurn));
    }
    for (size_t i = kConnection + 1; i < turns_.size(); ++i) {
      const Message message = turns_[i].message->Decode();
      equal_turns_[KeyOf(message)].turns.push_back(i);
    }
  }

  void Run() {
    for (size_t i = kConnection + 1; i < turns_.size(); ++i) Offer(*turns_[i].message);
    task_.Get().OnConnected([this](const auto&) { Play(turns_[kConnection], {}); });
    task_.Serve();
  }

 private:
  // What the task sent before the first message of its starter goes to the turn `opening`.
  void AddTurns(const RecordedConversation& conversation, size_t opening) {
    size_t last = opening;
    std::map<size_t, size_t> turn_of;  // By the index of a message.
    for (size_t i = 0; i < conversation.messages.size(); ++i) {
      const RecordedMessage& message = conversation.messages[i];
      if (message.is_to_task) {
        turn_of[i] = last = turns_.size();
        turns_.push_back({&message, {}});
        continue;
      }
      const size_t turn = message.partner != kNoMessage ? turn_of.at(message.partner) : last;
      if (turn != kNoTurn) turns_[turn].followers.push_back(&message);
    }
  }

  // What equal messages have in common.
  std::string KeyOf(const Message& message) const {
    if (const auto* request = message.GetRequest()) {
      return 'r' + KeyOf(request->method, request->params);
    }
    const auto* notification = message.GetNotification();
    return notification ? 'n' + KeyOf(notification->method, notification->params) : "";
  }
  std::string KeyOf(const std::string& method, const EncodableValue& params) const {
    EncodableValue content = EncodableMap{{"params", params}};
    for (const ValuePath& pattern : role_.ignored) RemoveParts(&content, pattern, 0);
    RemoveParts(&content, {StepTo("params"), StepTo(kCall)},
                0);  // It counts the calls of the starter's process.
    const forge::Buffer bytes = content.Serialize();
    std::string key = method + '\0';
    return key.append(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize());
  }

  // Takes such messages, each method once.
  void Offer(const RecordedMessage& message) {
    const bool is_request = message.type == Message::Type::kRequest;
    if (!offered_.emplace(is_request, message.method).second) return;
    if (is_request) {
      task_.Get().OnRequest(message.method, [this](const auto& method, const auto& params,
                                                   std::unique_ptr<IReply>&& reply) {
        Answer(method, params, std::shared_ptr<IReply>(std::move(reply)));
      });
    } else {
      task_.Get().OnNotify(message.method, [this](const auto& notification) {
        const auto found = equal_turns_.find('n' + KeyOf(notification.method, notification.params));
        if (found != equal_turns_.end()) Play(turns_[found->second.TakeNext()], {});
      });
    }
  }

  void Answer(const std::string& method, const EncodableValue& params,
              const std::shared_ptr<IReply>& reply) {
    const auto found = equal_turns_.find('r' + KeyOf(method, params));
    if (found != equal_turns_.end()) {
      const auto* const call = cw::Find(&params, kCall);
      return Play(turns_[found->second.TakeNext()], {reply, call ? *call : EncodableValue()});
    }
    reply->SendError(tavo::kit::kInvalidParams,
                     "the record has no request \"" + method + "\" with these parameters", {});
  }

  void Play(const Turn& turn, const Asked& asked) {
    PlayFrom(0, turn, TaskServer::Clock::now(), asked);
  }

  // Sends the followers from this one on that are due. The first one that is not due waits alone,
  // for all behind it.
  void PlayFrom(size_t first, const Turn& turn, TaskServer::Clock::time_point begin,
                const Asked& asked) {
    for (size_t i = first; i < turn.followers.size(); ++i) {
      const auto pause = begin + GetPause(turn, i) - TaskServer::Clock::now();
      if (pause <= pause.zero()) {
        Send(*turn.followers[i], asked);
        continue;
      }
      const auto go_on = [this, i, &turn, begin, asked](const EncodableValue&) {
        PlayFrom(i, turn, begin, asked);
      };
      if (task_.SendLater(pause, {}, go_on)) return;
      return Session::PrintError("tavo replay: messages are not sent: too many wait");
    }
  }

  std::chrono::microseconds GetPause(const Turn& turn, size_t follower) const {
    constexpr std::chrono::microseconds kNone{0};
    if (!role_.has_pauses) return kNone;
    return turn.followers[follower]->at - (turn.message ? turn.message->at : kNone);
  }

  void Send(const RecordedMessage& recorded, const Asked& asked) const {
    const Message message = recorded.Decode();
    if (const auto* notification = message.GetNotification()) {
      return Notify(recorded, *notification, asked);
    }
    const auto* response = message.GetResponse();
    if (!response || !asked.reply) return;
    if (const auto* error = response->GetError()) {
      asked.reply->SendError(error->code, error->message, error->data);
    } else {
      asked.reply->SendResult(*response->GetResult());
    }
  }

  // One that belongs to a call of the kit names the call that is asked now.
  void Notify(const RecordedMessage& recorded, const Message::Notification& notification,
              const Asked& asked) const {
    EncodableValue params = notification.params;
    if (recorded.partner != kNoMessage && !asked.call.IsNull()) {
      if (auto* const map = params.GetIf<EncodableMap>()) (*map)[kCall] = asked.call;
    }
    task_.Get().SendNotify(notification.method, params);
  }

  const ReplayRole& role_;
  std::vector<Turn> turns_;
  std::unordered_map<std::string, EqualTurns> equal_turns_;
  std::set<std::pair<bool, std::string>> offered_;  // Requests or not, and their methods.
  TaskServer task_;  // Its end drops the functions that refer to the others.
};

}  // namespace

void ReplayAs(const std::vector<RecordedConversation>& conversations, const ReplayRole& role) {
  RunSession([&](Session& session) { Player(session, conversations, role).Run(); });
}

}  // namespace tools
