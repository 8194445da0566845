// The tables of the real library, with entries of ours where something is to be recorded. The real
// library fills the caller's table, so its rules of sizes, its null entries and its results are the
// caller's.
#include "forge/proc_table.h"
#include "src/tavo_capi.h"
#include "trace/listeners.h"
#include "trace/real_library.h"
#include "trace/real_tables.h"

namespace trace {
namespace {

template <typename Table, typename Loader>
Table LoadFull(Loader load) {
  Table table{};
  load(&table, sizeof table);
  return table;
}

// ---- Entries: the record is there, and so is the real entry ------------------------------------

ForgeResult StartTask(_TAVORpcClientRef* client, const char* name, const char* libs_path,
                      TAVORpcClientSlots* slots) {
  SlotLoan<ClientListener> loan(slots, *Record::Get(), client, name ? name : "");
  const auto result = GetClientTable().StartTask(client, name, libs_path, loan.Get());
  if (result == FORGE_RESULT_OK) loan.Keep();
  return result;
}

// The message is recorded first: the answer may come before the real entry has returned.
ForgeResult SendToTask(_TAVORpcClientRef* client, const char* message) {
  if (const auto conversation = FindConversation(client)) conversation->ToPeer(message);
  return GetClientTable().SendMessage(client, message);
}

void Run(_TAVORpcServerRef* server, TAVORpcServerSlots* slots) {
  SlotLoan<ServerListener> loan(slots, *Record::Get(), server);
  GetServerTable().Run(server, loan.Get());
  if (loan.GetListener() && loan.GetListener()->HasStarted()) loan.Keep();
}

ForgeResult SendToStarter(_TAVORpcServerRef* server, const char* message) {
  if (const auto conversation = FindConversation(server)) conversation->ToPeer(message);
  return GetServerTable().SendMessage(server, message);
}

ForgeResult OpenUri(_TAVOIntentManagerRef* manager, const char* uri, TAVOOpenUriSlot* slot) {
  const auto result = GetIntentTable().OpenUri(manager, uri, slot);
  if (result == FORGE_RESULT_OK) Record::Get()->AddIntent("OpenURI", uri);
  return result;
}

ForgeResult RegisterIntent(_TAVOIntentManagerRef* manager, const char* name,
                           TAVORegisterIntentSlot* slot) {
  if (!slot || !name) return GetIntentTable().RegisterIntent(manager, name, slot);
  SlotLoan<IntentListener> loan(slot, *Record::Get(), name);
  const auto result = GetIntentTable().RegisterIntent(manager, name, loan.Get());
  if (result == FORGE_RESULT_OK) loan.Keep();
  return result;
}

// ---- Loaders -----------------------------------------------------------------------------------

// Puts an entry of ours in the place of a real one that the caller's table has.
template <typename Table, typename Entry>
void Replace(Table* table, Entry Table::*field, Entry entry) {
  if (forge::Covered(*table, field)) table->*field = entry;
}

ForgeResult LoadClientTable(TAVORpcClientProcTable* table, unsigned int size) {
  const auto result = GetTopTable().RpcClientProcTableLoad(table, size);
  if (result != FORGE_RESULT_OK) return result;
  Replace(table, &TAVORpcClientProcTable::StartTask, StartTask);
  Replace(table, &TAVORpcClientProcTable::SendMessage, SendToTask);
  return result;
}

ForgeResult LoadServerTable(TAVORpcServerProcTable* table, unsigned int size) {
  const auto result = GetTopTable().RpcServerProcTableLoad(table, size);
  if (result != FORGE_RESULT_OK) return result;
  Replace(table, &TAVORpcServerProcTable::Run, Run);
  Replace(table, &TAVORpcServerProcTable::SendMessage, SendToStarter);
  return result;
}

ForgeResult LoadIntentTable(TAVOIntentManagerProcTable* table, unsigned int size) {
  const auto result = GetTopTable().IntentManagerProcTableLoad(table, size);
  if (result != FORGE_RESULT_OK) return result;
  Replace(table, &TAVOIntentManagerProcTable::OpenUri, OpenUri);
  Replace(table, &TAVOIntentManagerProcTable::RegisterIntent, RegisterIntent);
  return result;
}

}  // namespace

const TAVOProcTable& GetTopTable() {
  static const auto table = LoadFull<TAVOProcTable>(GetRealLoader());
  return table;
}

const TAVORpcClientProcTable& GetClientTable() {
  static const auto table = LoadFull<TAVORpcClientProcTable>(GetTopTable().RpcClientProcTableLoad);
  return table;
}

const TAVORpcServerProcTable& GetServerTable() {
  static const auto table = LoadFull<TAVORpcServerProcTable>(GetTopTable().RpcServerProcTableLoad);
  return table;
}

const TAVOIntentManagerProcTable& GetIntentTable() {
  static const auto table =
      LoadFull<TAVOIntentManagerProcTable>(GetTopTable().IntentManagerProcTableLoad);
  return table;
}

}  // namespace trace

// Without a record the caller has the real tables, at no cost.
ForgeResult TAVOProcTableLoad(TAVOProcTable* table, uint32_t size) {
  const auto load = trace::GetRealLoader();
  if (!load) return FORGE_RESULT_WRONG_STATE;
  const ForgeResult result = load(table, size);
  if (result != FORGE_RESULT_OK || !trace::Record::Get()) return result;
  trace::Replace(table, &TAVOProcTable::RpcClientProcTableLoad, trace::LoadClientTable);
  trace::Replace(table, &TAVOProcTable::RpcServerProcTableLoad, trace::LoadServerTable);
  trace::Replace(table, &TAVOProcTable::IntentManagerProcTableLoad, trace::LoadIntentTable);
  return result;
}
