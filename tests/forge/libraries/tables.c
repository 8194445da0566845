/* Tiny libraries for the tests of loading: one with loaders of several kinds, and, built with
 * NO_LOADERS, one with none. */
#include "tests/forge/libraries/tables.h"

#include <stdint.h>
#include <string.h>

#define EXPORT __attribute__((visibility("default")))

#ifdef NO_LOADERS
EXPORT int NothingToSeeHere(void);
EXPORT int NothingToSeeHere(void) { return 0; }
#else

static int Two(void) { return 2; }
static int Three(void) { return 3; }

EXPORT unsigned int LoadCurrent(TestTable* table, unsigned int size);
EXPORT unsigned int LoadOlder(TestTable* table, unsigned int size);
EXPORT unsigned int LoadLowered(TestTable* table, unsigned int size);
EXPORT unsigned int LoadFailing(TestTable* table, unsigned int size);

EXPORT unsigned int LoadCurrent(TestTable* table, unsigned int size) {
  if (table->size != size || table->Two || table->Three) return 2; /* It must come cleared. */
  table->Two = Two;
  table->Three = Three;
  return 0;
}

/* Knows the first entry alone. */
EXPORT unsigned int LoadOlder(TestTable* table, unsigned int size) {
  (void)size;
  table->Two = Two;
  table->size = offsetof(TestTable, Three);
  return 0;
}

/* Fills everything, and takes the second entry back. */
EXPORT unsigned int LoadLowered(TestTable* table, unsigned int size) {
  const unsigned int result = LoadCurrent(table, size);
  table->size = sizeof(TestTable) - 1;
  return result;
}

EXPORT unsigned int LoadFailing(TestTable* table, unsigned int size) {
  (void)table;
  return size;
}
#endif
