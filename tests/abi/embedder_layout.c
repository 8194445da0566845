/* The list of the embedder's entries, held against the header: each field's place (in units of a
 * pointer) and type, and nothing beside them. That it compiles is the test. */
#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "forge/forge_capi.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

typedef _FlutterOstrelApplication* App;
typedef _FlutterOstrelEngine* Engine;
typedef _FlutterOstrelView* View;

/* clang-format off */
#define BEGIN(name) FIELD(0, size, uint32_t)
#define FIELD(index, field, type) \
  static_assert(offsetof(TABLE, field) == (index) * sizeof(void*), #field " moved"); \
  static_assert(_Generic(&((TABLE*)0)->field, type*: 1, default: 0), #field " has another type");
#define ENTRY(index, field, result, ...) \
  FIELD(index, field, __typeof__(result (*)(__VA_ARGS__)))
#define END(count) \
  static_assert(sizeof(TABLE) == (count) * sizeof(void*), "A field more or less");

#include "platform/flutter_ostrel/embedder_entries.inc"
/* clang-format on */

static_assert(offsetof(FlutterOstrelTheme, values) == 8, "After size and flag");
static_assert(offsetof(FlutterOstrelTheme, texts) == 24, "After the values");
