// A server inside a task: the protocol's server over the service's server table.
//
// The service knows this object by its handle, so callbacks after its destruction find nothing. The
// destructor calls nothing in the service.
//
// Threads: those of flrpc/server.h. The table's callbacks come on the event loop and are handled
//          there at once; the dispatcher is only kept.
// Errors:  an exception of a user's handler ends in the table's callback as an error line. The
//          chunk of the text is given back all the same.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "flrpc/server.h"
#include "forge/library_api.h"
#include "forge/object.h"
#include "src/tavo_capi.h"

struct _RpcServerWrapperRef;

namespace tavo {

class RpcServer final : public forge::Object<RpcServer, _RpcServerWrapperRef*>,
                        public flrpc::IServer {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  using Table = forge::LibraryApi<TAVORpcServerProcTable>;

  RpcServer(const std::shared_ptr<forge::IDispatcher>& dispatcher, std::shared_ptr<Table> table,
            _TAVORpcServerRef* server, PrivateTag);

  // Null when the table or the server is null, and, with an error line, when the table lacks an
  // entry.
  static std::shared_ptr<flrpc::IServer> Create(
      const std::shared_ptr<forge::IDispatcher>& dispatcher, const std::shared_ptr<Table>& table,
      _TAVORpcServerRef* server);

  void SendNotify(std::string_view method, const cw::EncodableValue& params) override {
    inner_->SendNotify(method, params);
  }
  void OnConnected(ConnectionCallback&& callback) override {
    inner_->OnConnected(std::move(callback));
  }
  void OnRequest(std::string_view method, RequestHandler&& handler) override {
    inner_->OnRequest(method, std::move(handler));
  }
  void OnNotify(std::string_view method, NotifyCallback&& handler) override {
    inner_->OnNotify(method, std::move(handler));
  }
  void Run() override;

 private:
  static void HandleOnStarted(void* context, int code, const char* text, unsigned int chunk_id);
  static void HandleOnMessage(void* context, const char* text, unsigned int chunk_id);

  void UnlockIfAny(unsigned int chunk_id) const;

  // The members are destroyed from the last to the first.
  const std::shared_ptr<Table> table_;
  _TAVORpcServerRef* const server_;
  const std::shared_ptr<flrpc::IOwnedServer> inner_;
};

}  // namespace tavo
