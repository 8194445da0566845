/* A libtavo.so of the test's own: its one loader fills in what the test has put into test_table. */
#include <string.h>

#include "src/tavo_capi.h"

__attribute__((visibility("default"))) TAVOProcTable test_table;

ForgeResult TAVOProcTableLoad(TAVOProcTable* table, uint32_t size) {
  if (size != sizeof *table || table->size != size || table->Initialize) return 2;
  memcpy(table, &test_table, sizeof *table);
  return 0;
}
