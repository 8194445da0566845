/* The table of the tests of loading. */
#ifndef TESTS_FORGE_LIBRARIES_TABLES_H_
#define TESTS_FORGE_LIBRARIES_TABLES_H_

#include <stddef.h>
#include <stdint.h>

typedef struct TestTable {
  uint32_t size;
  int (*Two)(void);
  int (*Three)(void);
} TestTable;

#endif /* TESTS_FORGE_LIBRARIES_TABLES_H_ */
