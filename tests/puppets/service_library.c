/* A libtavo.so of the test's own: its one loader fills in what the test has put into test_table. */
#include "src/tavo_capi.h"

__attribute__((visibility("default"))) TAVOProcTable test_table;

ForgeResult TAVOProcTableLoad(TAVOProcTable* table, uint32_t size) {
  if (size != sizeof *table || table->size != size || table->Initialize) return 2;
  *table = test_table;
  return 0;
}
