// What is recorded of the callbacks of each slot structure (trace/slot_loan.h).
//
// Threads: as the real library calls them.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "src/tavo_capi.h"
#include "trace/conversation.h"
#include "trace/slot_loan.h"

namespace trace {

// The open conversation of a client or server. Null: there is none, or it is not recorded.
std::shared_ptr<Conversation> FindConversation(const void* handle);

class ClientListener {
 public:
  using Slots = TAVORpcClientSlots;
  using kCallbacks = Callbacks<&Slots::OnStarted, &Slots::OnDisconnect, &Slots::OnMessage>;
  static constexpr auto kRelease = &Slots::Release;

  ClientListener(Record& record, _TAVORpcClientRef* client, const char* task);

  void On(Callback<&Slots::OnStarted>, int code, const char* text, unsigned int);
  void On(Callback<&Slots::OnDisconnect>, int, const char*, unsigned int);
  void On(Callback<&Slots::OnMessage>, const char* text, unsigned int);
  void Drop(int, const char*, unsigned int chunk_id);
  void Drop(const char*, unsigned int chunk_id);
  void OnRelease();

 private:
  _TAVORpcClientRef* const client_;
  const std::shared_ptr<Conversation> conversation_;
};

class ServerListener {
 public:
  using Slots = TAVORpcServerSlots;
  using kCallbacks = Callbacks<&Slots::OnStarted, &Slots::OnMessage>;
  static constexpr auto kRelease = &Slots::Release;

  ServerListener(Record& record, _TAVORpcServerRef* server);

  // The real library does not tell otherwise whether it has taken the slots over.
  bool HasStarted() const { return has_started_; }

  void On(Callback<&Slots::OnStarted>, int, const char*, unsigned int);
  void On(Callback<&Slots::OnMessage>, const char* text, unsigned int);
  void Drop(int, const char*, unsigned int) {}
  void Drop(const char*, unsigned int chunk_id);
  void OnRelease();

 private:
  _TAVORpcServerRef* const server_;
  const std::shared_ptr<Conversation> conversation_;  // Null: the starter records it.
  std::atomic<bool> has_started_{false};
};

class IntentListener {
 public:
  using Slots = TAVORegisterIntentSlot;
  using kCallbacks = Callbacks<&Slots::callback>;
  static constexpr auto kRelease = &Slots::release;

  IntentListener(Record& record, const char* intent) : record_(record), intent_(intent) {}

  void On(Callback<&Slots::callback>, TAVOReplyIntentSlot*) { record_.AddIntent(intent_, nullptr); }
  void Drop(TAVOReplyIntentSlot* reply) { reply->release(reply->context); }
  void OnRelease() {}

 private:
  Record& record_;
  const std::string intent_;
};

}  // namespace trace
