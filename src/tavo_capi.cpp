#include "src/tavo_capi.h"

#include "forge/logger.h"
#include "src/border.h"
#include "src/manager.h"

using tavo::details::FenceEntry;
using tavo::details::FillTable;
using tavo::details::Manager;

namespace {

ForgeResult IntentManagerProcTableLoad(TAVOIntentManagerProcTable* table, unsigned int size) {
  return FenceEntry("IntentManagerProcTableLoad", FORGE_RESULT_INVALID_ARGUMENT, [=] {
    if (!table) {
      FORGE_LOG(kError) << "Null table specified.";
      return FORGE_RESULT_INVALID_ARGUMENT;
    }
    return FillTable(table, size,
                     {sizeof *table, tavo::IntentManagerImpl::HandleOpenUri,
                      tavo::IntentManagerImpl::HandleRegisterIntent});
  });
}

}  // namespace

ForgeResult TAVOProcTableLoad(TAVOProcTable* table, uint32_t size) {
  return FenceEntry("TAVOProcTableLoad", FORGE_RESULT_INVALID_ARGUMENT, [=] {
    if (!table) {
      FORGE_LOG(kError) << "Null table specified.";
      return FORGE_RESULT_INVALID_ARGUMENT;
    }
    return FillTable(table, size,
                     {sizeof *table, Manager::HandleInitialize, Manager::HandleRelease,
                      Manager::HandleGetIntentManager, IntentManagerProcTableLoad,
                      Manager::HandleCreateRpcClient, tavo::RpcClientImpl::ProcTableLoad,
                      Manager::HandleGetRpcServer, tavo::RpcServerImpl::ProcTableLoad});
  });
}
