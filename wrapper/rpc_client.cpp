#include "wrapper/rpc_client.h"

#include <optional>
#include <utility>

#include "flrpc/message_text.h"
#include "forge/fence.h"
#include "forge/logger.h"
#include "forge/null_text.h"

namespace tavo {
namespace {

using flrpc::Message;
using ProcTable = TAVORpcClientProcTable;

bool IsComplete(const ProcTable& table) {
  return FORGE_COVERED_OR_LOG(table, SendMessage) && FORGE_SET_OR_LOG(table, StartTask) &&
         FORGE_SET_OR_LOG(table, UnlockResources) && FORGE_COVERED_OR_LOG(table, Release);
}

void Send(const std::weak_ptr<RpcClient::Table>& weak_table, _TAVORpcClientRef* client,
          Message&& message) {
  const auto table = weak_table.lock();
  if (!table || !FORGE_COVERED_OR_LOG(table->Get(), SendMessage)) return;
  const flrpc::details::MessageText text(std::move(message));
  if (!text.Get().empty()) table->Get().SendMessage(client, text.Get().c_str());
}

// Code 0 is no error.
std::optional<Message::Error> ErrorOf(int code, const char* text) {
  if (code == 0) return std::nullopt;
  return Message::Error(code, text ? text : "");
}

}  // namespace

RpcClient::RpcClient(const std::shared_ptr<forge::IDispatcher>& dispatcher,
                     std::shared_ptr<Table> table, _TAVORpcClientRef* client, PrivateTag)
    : Object(dispatcher),
      table_(std::move(table)),
      client_(client),
      inner_(flrpc::IOwnedClient::Create(
          [weak_table = std::weak_ptr<Table>(table_), client](Message&& message) {
            Send(weak_table, client, std::move(message));
          })) {}

RpcClient::~RpcClient() { table_->Get().Release(client_); }

std::shared_ptr<flrpc::IClient> RpcClient::Create(
    const std::shared_ptr<forge::IDispatcher>& dispatcher, const std::string& name,
    const std::shared_ptr<Table>& table, _TAVORpcClientRef* client) {
  if (!table || !client || !IsComplete(table->Get())) return nullptr;
  auto object = Object::Create(dispatcher, table, client, PrivateTag{});
  if (!object->inner_) return nullptr;
  TAVORpcClientSlots slots{};
  slots.size = sizeof(slots);
  slots.OnStarted = HandleOnStarted;
  slots.OnDisconnect = HandleOnDisconnect;
  slots.OnMessage = HandleOnMessage;
  slots.user_data = object->GetRef();
  const std::string directory = table->GetLibrary()->GetPath().parent_path().string();
  const auto result = table->Get().StartTask(client, name.c_str(), directory.c_str(), &slots);
  if (result != FORGE_RESULT_OK) {
    FORGE_LOG(kError) << "Task \"" << name << "\" could not be started: StartTask returned "
                      << result << ".";
  }
  return object;
}

// Unlike the other two, this gives back only a chunk that is not 0, without a test of the entry.
void RpcClient::HandleOnStarted(void* context, int code, const char* text, unsigned int chunk_id) {
  const auto self = FromRef(static_cast<_RpcClientWrapperRef*>(context));
  if (!self) return;
  std::optional<Message::Error> error;
  bool is_told = false;
  forge::Fence("OnStarted", [&] {
    error = ErrorOf(code, text);
    if (error) self->inner_->NotifyDisconnected(error);
    is_told = true;
  });
  if (code != 0 && !is_told) error.emplace(code, "");  // There is no memory for the text.
  if (chunk_id != 0) self->table_->Get().UnlockResources(self->client_, chunk_id);
  forge::Fence("OnStarted", [&] { self->inner_->NotifyStarted(std::move(error)); });
}

void RpcClient::HandleOnDisconnect(void* context, int code, const char* text,
                                   unsigned int chunk_id) {
  const auto self = FromRef(static_cast<_RpcClientWrapperRef*>(context));
  if (!self) return;
  forge::Fence("OnDisconnect", [&] { self->inner_->NotifyDisconnected(ErrorOf(code, text)); });
  self->Unlock(chunk_id);
}

void RpcClient::HandleOnMessage(void* context, const char* text, unsigned int chunk_id) {
  const auto self = FromRef(static_cast<_RpcClientWrapperRef*>(context));
  if (!self) return;
  forge::Fence("OnMessage", [&] {
    const std::string_view lent = forge::RequireText(text);
    if (!lent.empty()) self->inner_->ReceiveMessage(flrpc::details::FromText(lent));
  });
  self->Unlock(chunk_id);
}

void RpcClient::Unlock(unsigned int chunk_id) const {
  if (FORGE_COVERED_OR_LOG(table_->Get(), UnlockResources)) {
    table_->Get().UnlockResources(client_, chunk_id);
  }
}

}  // namespace tavo
