#include "src/tavo_capi.h"

#include "forge/logger.h"
#include "src/border.h"
#include "src/manager.h"

namespace {

// The intent service is not there yet: its entries are not provided.
ForgeResult IntentManagerProcTableLoad(TAVOIntentManagerProcTable* table, unsigned int size) {
  if (!table) {
    FORGE_LOG(kError) << "Null table specified.";
    return FORGE_RESULT_INVALID_ARGUMENT;
  }
  return tavo::details::FillTable(table, size, {});
}

}  // namespace

ForgeResult TAVOProcTableLoad(TAVOProcTable* table, uint32_t size) {
  using tavo::details::Manager;
  if (!table) {
    FORGE_LOG(kError) << "Null table specified.";
    return FORGE_RESULT_INVALID_ARGUMENT;
  }
  return tavo::details::FillTable(
      table, size,
      {sizeof *table, Manager::HandleInitialize, Manager::HandleRelease,
       Manager::HandleGetIntentManager, IntentManagerProcTableLoad, Manager::HandleCreateRpcClient,
       tavo::RpcClientImpl::ProcTableLoad, Manager::HandleGetRpcServer,
       tavo::RpcServerImpl::ProcTableLoad});
}
