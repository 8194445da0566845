/* Types that every C table shares: result codes and the view of a byte buffer.
 *
 * A structure that crosses the C interface starts with its declared size in bytes. A field counts
 * only if the declared size reaches its end; what lies beyond is neither read nor written.
 * Structures grow only at the end. */
#ifndef FORGE_FORGE_CAPI_H_
#define FORGE_FORGE_CAPI_H_

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The result of a loader or of a table entry: one of the FORGE_RESULT_ values. 1 is not used. */
typedef unsigned int ForgeResult;

#define FORGE_RESULT_OK 0u

/* A null table or structure, or an argument out of its range. */
#define FORGE_RESULT_INVALID_ARGUMENT 2u

/* An unknown handle, or an operation that is not possible in the object's present state. */
#define FORGE_RESULT_WRONG_STATE 3u

/* The rule of sizes: true when the declared size reaches the end of a field of `width` bytes at
 * `offset`. */
#define FORGE_REACHES(size, offset, width) ((size) >= (offset) + (width))

/* The same for `field` of the structure `type`, whose declared size is `size`. */
#define FORGE_COVERS(type, field, size) \
  FORGE_REACHES(size, offsetof(type, field), sizeof(((type*)NULL)->field))

/* A view of bytes. The view owns nothing: the operation that fills or takes it tells who owns the
 * bytes and how long they live. */
typedef struct ForgeBufferView {
  uint32_t struct_size; /* The declared size of this structure, in bytes. */
  const uint8_t* data;  /* Null: there is no data. */
  size_t size;          /* The number of bytes at `data`. */
} ForgeBufferView;

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(ForgeBufferView) == 12, "The 32-bit layout is fixed");
#endif
static_assert(offsetof(ForgeBufferView, data) == 1 * sizeof(void*), "The layout is fixed");
static_assert(offsetof(ForgeBufferView, size) == 2 * sizeof(void*), "The layout is fixed");

#ifdef __cplusplus
}
#endif

#endif /* FORGE_FORGE_CAPI_H_ */
