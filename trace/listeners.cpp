#include "trace/listeners.h"

#include <cerrno>
#include <exception>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "trace/real_tables.h"

namespace trace {
namespace {

// The open conversations by the handle of their client or server. They are never destroyed, since
// callbacks come until the process ends.
struct Conversations {
  std::shared_mutex mutex;
  std::map<const void*, std::shared_ptr<Conversation>> by_handle;  // Guarded by mutex.

  static Conversations& Get() {
    static auto& conversations = *new Conversations;
    return conversations;
  }
};

void AddConversation(const void* handle, const std::shared_ptr<Conversation>& conversation) {
  auto& all = Conversations::Get();
  try {
    const std::lock_guard lock(all.mutex);
    all.by_handle[handle] = conversation;
  } catch (const std::exception&) {  // Without memory, what is sent is not recorded.
  }
}

void RemoveConversation(const void* handle) {
  auto& all = Conversations::Get();
  const std::lock_guard lock(all.mutex);
  all.by_handle.erase(handle);
}

// Null: the starter records the conversation in the same file.
std::shared_ptr<Conversation> MakeServed(Record& record) {
  if (!record.Begin(false)) return nullptr;
  return std::make_shared<Conversation>(record, Conversation::End::kTask,
                                        program_invocation_short_name);
}

// Before the task starts, which looks for the file, too.
std::shared_ptr<Conversation> MakeStarted(Record& record, const char* task) {
  record.Begin(true);
  return std::make_shared<Conversation>(record, Conversation::End::kStarter, task);
}

}  // namespace

std::shared_ptr<Conversation> FindConversation(const void* handle) {
  auto& all = Conversations::Get();
  const std::shared_lock lock(all.mutex);
  const auto found = all.by_handle.find(handle);
  return found == all.by_handle.end() ? nullptr : found->second;
}

ClientListener::ClientListener(Record& record, _TAVORpcClientRef* client, const char* task)
    : client_(client), conversation_(MakeStarted(record, task)) {}

void ClientListener::On(Callback<&Slots::OnStarted>, int code, const char* text, unsigned int) {
  if (code != 0) return conversation_->Fail(text);
  conversation_->Start();  // Before a message of another thread can be recorded.
  AddConversation(client_, conversation_);
}

void ClientListener::On(Callback<&Slots::OnDisconnect>, int, const char*, unsigned int) {
  RemoveConversation(client_);
  conversation_->Stop();
}

void ClientListener::On(Callback<&Slots::OnMessage>, const char* text, unsigned int) {
  conversation_->FromPeer(text);
}

void ClientListener::Drop(int, const char* text, unsigned int chunk_id) { Drop(text, chunk_id); }

void ClientListener::Drop(const char*, unsigned int chunk_id) {
  const auto give_back = GetClientTable().UnlockResources;
  if (chunk_id != 0 && give_back) give_back(client_, chunk_id);
}

// The real library's OnDisconnect may have come before its OnStarted.
void ClientListener::OnRelease() {
  RemoveConversation(client_);
  conversation_->Stop();
}

ServerListener::ServerListener(Record& record, _TAVORpcServerRef* server)
    : server_(server), conversation_(MakeServed(record)) {}

void ServerListener::On(Callback<&Slots::OnStarted>, int, const char*, unsigned int) {
  has_started_ = true;
  if (!conversation_) return;
  conversation_->Start();
  AddConversation(server_, conversation_);
}

void ServerListener::On(Callback<&Slots::OnMessage>, const char* text, unsigned int) {
  if (conversation_) conversation_->FromPeer(text);
}

void ServerListener::Drop(const char*, unsigned int chunk_id) {
  const auto give_back = GetServerTable().UnlockResources;
  if (chunk_id != 0 && give_back) give_back(server_, chunk_id);
}

void ServerListener::OnRelease() {
  if (!conversation_) return;
  RemoveConversation(server_);
  conversation_->Stop();
}

}  // namespace trace
