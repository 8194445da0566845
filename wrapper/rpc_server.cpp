#include "wrapper/rpc_server.h"

#include <utility>

#include "flrpc/message_text.h"
#include "forge/fence.h"
#include "forge/null_text.h"

namespace tavo {
namespace {

using flrpc::Message;
using ProcTable = TAVORpcServerProcTable;

bool IsComplete(const ProcTable& table) {
  return FORGE_COVERED_OR_LOG(table, Run) && FORGE_COVERED_OR_LOG(table, SendMessage) &&
         FORGE_SET_OR_LOG(table, UnlockResources);
}

}  // namespace

RpcServer::RpcServer(const std::shared_ptr<forge::IDispatcher>& dispatcher,
                     std::shared_ptr<Table> table, _TAVORpcServerRef* server, PrivateTag)
    : Object(dispatcher),
      table_(std::move(table)),
      server_(server),
      inner_(flrpc::IOwnedServer::Create(
          [weak_table = std::weak_ptr<Table>(table_), server](Message&& message) {
            const auto living = weak_table.lock();
            if (!living) return;
            const flrpc::details::MessageText text(std::move(message));
            if (!text.Get().empty()) living->Get().SendMessage(server, text.Get().c_str());
          })) {}

std::shared_ptr<flrpc::IServer> RpcServer::Create(
    const std::shared_ptr<forge::IDispatcher>& dispatcher, const std::shared_ptr<Table>& table,
    _TAVORpcServerRef* server) {
  if (!table || !server || !IsComplete(table->Get())) return nullptr;
  return Object::Create(dispatcher, table, server, PrivateTag{});
}

void RpcServer::Run() {
  // A captured object may call this during the destruction.
  if (weak_from_this().expired()) return;
  TAVORpcServerSlots slots{};
  slots.size = sizeof(slots);
  slots.OnStarted = HandleOnStarted;
  slots.OnMessage = HandleOnMessage;
  slots.user_data = GetRef();
  table_->Get().Run(server_, &slots);
}

// The server runs whatever the code is; the service reports no error here.
void RpcServer::HandleOnStarted(void* context, int, const char*, unsigned int chunk_id) {
  const auto self = FromRef(static_cast<_RpcServerWrapperRef*>(context));
  if (!self) return;
  self->UnlockIfAny(chunk_id);
  forge::Fence("OnStarted", [&] { self->inner_->Run(); });
}

void RpcServer::HandleOnMessage(void* context, const char* text, unsigned int chunk_id) {
  const auto self = FromRef(static_cast<_RpcServerWrapperRef*>(context));
  if (!self) return;
  forge::Fence("OnMessage", [&] {
    const std::string_view lent = forge::RequireText(text);
    if (!lent.empty()) self->inner_->ReceiveMessage(flrpc::details::FromText(lent));
  });
  self->UnlockIfAny(chunk_id);
}

void RpcServer::UnlockIfAny(unsigned int chunk_id) const {
  if (chunk_id != 0) table_->Get().UnlockResources(server_, chunk_id);
}

}  // namespace tavo
