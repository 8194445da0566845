// A client of a task: the protocol's client over the service's client table.
//
// The service knows this object by its handle, so callbacks after its destruction find nothing. The
// object owns the service's client: its destructor releases that client, and the task ends.
//
// Threads: those of flrpc/client.h. The table's callbacks come on the event loop and are handled
//          there at once; the dispatcher is only kept.
// Errors:  an exception of a user's callback ends in the table's callback as an error line. The
//          chunk of the text is given back all the same.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "flrpc/client.h"
#include "forge/library_api.h"
#include "forge/object.h"
#include "src/tavo_capi.h"

struct _RpcClientWrapperRef;

namespace tavo {

class RpcClient final : public forge::Object<RpcClient, _RpcClientWrapperRef*>,
                        public flrpc::IClient {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  using Table = forge::LibraryApi<TAVORpcClientProcTable>;

  RpcClient(const std::shared_ptr<forge::IDispatcher>& dispatcher, std::shared_ptr<Table> table,
            _TAVORpcClientRef* client, PrivateTag);
  ~RpcClient() override;

  // Starts the task `name`. Null when the table or the client is null, and, with an error line,
  // when the table lacks an entry.
  static std::shared_ptr<flrpc::IClient> Create(
      const std::shared_ptr<forge::IDispatcher>& dispatcher, const std::string& name,
      const std::shared_ptr<Table>& table, _TAVORpcClientRef* client);

  bool IsConnected() const override { return inner_->IsConnected(); }
  bool HasConnectionFailed() const override { return inner_->HasConnectionFailed(); }
  void Run() override { inner_->Run(); }
  void OnConnected(ConnectionCallback&& callback) override {
    inner_->OnConnected(std::move(callback));
  }
  void OnDisconnected(ConnectionCallback&& callback) override {
    inner_->OnDisconnected(std::move(callback));
  }
  void SendRequest(std::string_view method, const cw::EncodableValue& params,
                   ResponseCallback&& callback) override {
    inner_->SendRequest(method, params, std::move(callback));
  }
  void SendNotify(std::string_view method, const cw::EncodableValue& params) override {
    inner_->SendNotify(method, params);
  }
  void OnNotify(std::string_view method, NotifyCallback&& handler) override {
    inner_->OnNotify(method, std::move(handler));
  }

 private:
  static void HandleOnStarted(void* context, int code, const char* text, unsigned int chunk_id);
  static void HandleOnDisconnect(void* context, int code, const char* text, unsigned int chunk_id);
  static void HandleOnMessage(void* context, const char* text, unsigned int chunk_id);

  void Unlock(unsigned int chunk_id) const;

  // The members are destroyed from the last to the first.
  const std::shared_ptr<Table> table_;
  _TAVORpcClientRef* const client_;
  const std::shared_ptr<flrpc::IOwnedClient> inner_;
};

}  // namespace tavo
