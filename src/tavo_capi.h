/* The C interface of libtavo.so: TAVOProcTableLoad and every structure that it leads to.
 *
 *   TAVOProcTable table = {0};
 *   TAVOProcTableLoad(&table, sizeof table);
 *   _TAVOManagerRef* manager = table.Initialize();
 *   table.RpcClientProcTableLoad(&client_table, sizeof client_table);
 *   _TAVORpcClientRef* client = table.CreateRpcClient(manager);
 *
 * Sizes. Every structure starts with its size in bytes as the caller knows it. A loader clears the
 * declared bytes, stores the size (also when it is below 4) and fills a field only if the size
 * reaches the field's end. Slots are read by the same rule. Test an entry for null before use,
 * because the loaded library may be older. Structures grow only at the end.
 *
 * Handles are opaque numbers, never addresses. An unknown, null or stale handle does no harm: each
 * entry tells what it returns then.
 *
 * Threads, as the tags name them:
 *   [any thread]       The entry may be called from any thread.
 *   [event loop]       The thread whose Qt event loop runs. Callbacks arrive there, so the entries
 *                      that set them up are called there too. A host without Qt must run such a
 *                      loop (on a desk: desk/runtime_manager/event_loop.h).
 *   [platform thread]  The same thread: clients that have stopped leave the manager there, so
 *                      no other call that changes the manager may run at the same time.
 * Callbacks are called on the event loop, or, where an entry says so, within that entry, on its
 * thread. Any entry may be called from within a callback. If another thread releases a client just
 * as it starts, its OnDisconnect may be called before its OnStarted. If an object is released while
 * another thread is in one of its entries, the object lives until that entry returns, and its last
 * callbacks are called on that thread. User data must be valid until its Release slot was called.
 *
 * Ownership. Arguments are borrowed until the entry returns. Texts handed to callbacks are NUL-
 * terminated UTF-8. They are borrowed until their chunk id is given back through UnlockResources,
 * or, with chunk id 0, until the callback returns. A chunk that cannot be given back any more (the
 * handle was released, or the slots hold no such callback) is freed right after the callback.
 *
 * When a process ends with living clients and servers, they are dropped after main as by the
 * manager's Release: their last slots are called then, so user data must live that long. A stop
 * that is still pending at that time is not waited for.
 *
 * Errors. Entries return a FORGE_RESULT_ value or a null handle and write a line to the log. A C++
 * exception leaves an entry in one case only: a null text that is given to StartTask, or to
 * SendMessage of a running server, throws std::logic_error. A C++ caller may catch it; a C caller
 * built without unwind tables (the default on ARM) is terminated. Exceptions of the caller's
 * callbacks end in the library as an error line. */
#ifndef TAVO_TAVO_CAPI_H_
#define TAVO_TAVO_CAPI_H_

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "forge/forge_capi.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Templates over these types are as visible as the types. */
#pragma GCC visibility push(default)

typedef struct _TAVOManagerRef _TAVOManagerRef;
typedef struct _TAVOIntentManagerRef _TAVOIntentManagerRef;
typedef struct _TAVORpcClientRef _TAVORpcClientRef;
typedef struct _TAVORpcServerRef _TAVORpcServerRef;

/* ---- Slots: callbacks that the caller gives ------------------------------------------------- */

/* Given to StartTask. Every callback may be null. The structure is copied; `user_data` stays in use
 * until Release was called. */
typedef struct TAVORpcClientSlots {
  uint32_t size;

  /* The task has started (code 0, empty text) or could not be started (code -32603, with the cause
   * as the text). Called once; a client that is dropped before, or released just as it starts, may
   * miss it. */
  void (*OnStarted)(void* user_data, int code, const char* text, unsigned int chunk_id);

  /* The channel was taken down; code 0, empty text, chunk 0. It is called at Release and again when
   * the client is destroyed, also after a failed start, so the callback must tolerate repeats.
   * [within Release, too] */
  void (*OnDisconnect)(void* user_data, int code, const char* text, unsigned int chunk_id);

  /* A message of the task has arrived. */
  void (*OnMessage)(void* user_data, const char* text, unsigned int chunk_id);

  /* The last call: user_data is not used afterwards. Called once, when the client is destroyed. */
  void (*Release)(void* user_data);

  void* user_data;
} TAVORpcClientSlots;

/* Given to Run. Every callback may be null. The structure is copied; `user_data` stays in use until
 * Release was called. */
typedef struct TAVORpcServerSlots {
  uint32_t size;

  /* The channel is open; code 0, empty text, chunk 0. [within Run] */
  void (*OnStarted)(void* user_data, int code, const char* text, unsigned int chunk_id);

  /* A message of the application that started this one has arrived. */
  void (*OnMessage)(void* user_data, const char* text, unsigned int chunk_id);

  /* The last call: user_data is not used afterwards. Called once, when the server is destroyed. */
  void (*Release)(void* user_data);

  void* user_data;
} TAVORpcServerSlots;

/* Given to OpenUri. One-shot: `callback` is called once with the outcome, then `release` once. A
 * request that still waits at the manager's Release is released without a callback. */
typedef struct TAVOOpenUriSlot {
  uint32_t size;
  void (*callback)(void* user_data, bool success);
  void (*release)(void* user_data);
  void* user_data;
} TAVOOpenUriSlot;

/* Made by the library for one invocation of a registered intent. The structure lives only during
 * the callback. Its fields stay usable until `release`, which must be called exactly once; after a
 * callback that throws, the library has released it. */
typedef struct TAVOReplyIntentSlot {
  uint32_t size;

  /* Answers with one value in the standard codec's encoding (docs/wire-format.md). The value must
   * be a map whose keys are texts; any other value is an error line and an answer with the empty
   * object. Each call sends an answer; a platform may use only the first one. A null context and a
   * released one are ignored. [any thread] */
  void (*reply)(void* context, const uint8_t* data, unsigned int length);

  /* Ends the invocation. A null context and a released one are ignored. [any thread] */
  void (*release)(void* context);

  void* context; /* A number, never an address. */
} TAVOReplyIntentSlot;

/* Given to RegisterIntent. `callback` is called at each invocation of the intent, `release` once,
 * after the last one. */
typedef struct TAVORegisterIntentSlot {
  uint32_t size;
  void (*callback)(void* user_data, TAVOReplyIntentSlot* reply);
  void (*release)(void* user_data);
  void* user_data;
} TAVORegisterIntentSlot;

/* ---- Tables: what the library offers -------------------------------------------------------- */

typedef struct TAVOIntentManagerProcTable {
  uint32_t size;

  /* Asks the platform to open a URI. Requests are sent one at a time, in their order. The callback
   * comes on the event loop. If the platform answers or fails at once, it comes on the thread that
   * has sent the request, within its OpenUri. 0: queued, and the library has taken the slot over;
   * with any other result the slot stays with the caller. 2: a null argument. 3: unknown handle.
   * [any thread] */
  ForgeResult (*OpenUri)(_TAVOIntentManagerRef* manager, const char* uri, TAVOOpenUriSlot* slot);

  /* Offers an intent to other applications for the life of the process. 0: registered, and the
   * library has taken the slot over; with any other result the slot stays with the caller. A slot
   * that was taken over is released when the platform drops it: at once if the platform cannot
   * offer the intent, or when this process registers the same name again. 2: a null argument. 3:
   * unknown handle. [event loop] */
  ForgeResult (*RegisterIntent)(_TAVOIntentManagerRef* manager, const char* name,
                                TAVORegisterIntentSlot* slot);
} TAVOIntentManagerProcTable;

typedef struct TAVORpcClientProcTable {
  uint32_t size;

  /* Starts the application `name` with the arguments "--libs-path" and `libs_path`. OnStarted tells
   * the outcome, never within this call. 0: accepted, and the slots were copied. 2: an empty text,
   * or an unknown handle. 3: this client was started before, or the platform threw; the caller
   * keeps the slots then. A null text throws std::logic_error. [event loop] [one-shot] */
  ForgeResult (*StartTask)(_TAVORpcClientRef* client, const char* name, const char* libs_path,
                           TAVORpcClientSlots* slots);

  /* Gives a chunk back, which frees its texts. The chunk id 0 and an unknown handle are ignored; an
   * unknown chunk id is an error line. [any thread] */
  void (*UnlockResources)(_TAVORpcClientRef* client, unsigned int chunk_id);

  /* Sends a text to the task. 0: handed to the channel. 3: unknown handle, null text, or no channel
   * is open. [any thread] */
  ForgeResult (*SendMessage)(_TAVORpcClientRef* client, const char* message);

  /* Makes the handle unknown at once. If the task runs, it is stopped, and the client is destroyed
   * when the task has stopped. A client that is idle, starting or failed stays, with its slots,
   * until the manager's Release. [any thread] [one-shot] */
  void (*Release)(_TAVORpcClientRef* client);
} TAVORpcClientProcTable;

/* There is no Release: the server lives as long as the manager holds it. */
typedef struct TAVORpcServerProcTable {
  uint32_t size;

  /* Serves the socket that this application was started with. Only the first successful call
   * counts: a later one does nothing, and its slots' Release is never called. After a failure,
   * which is an error line, the caller keeps the slots and may try again. [event loop] */
  void (*Run)(_TAVORpcServerRef* server, TAVORpcServerSlots* slots);

  /* Gives a chunk back, which frees its texts. An unknown handle is ignored; an unknown chunk id,
   * also 0, is an error line. [any thread] */
  void (*UnlockResources)(_TAVORpcServerRef* server, unsigned int chunk_id);

  /* Sends a text to the application that started this one. 0: handed to the channel. 3: unknown
   * handle, or no channel yet. A null text throws std::logic_error. [any thread] */
  ForgeResult (*SendMessage)(_TAVORpcServerRef* server, const char* message);
} TAVORpcServerProcTable;

typedef struct TAVOProcTable {
  uint32_t size;

  /* Returns the only manager of the process; each call returns the same handle. Null: it could not
   * be created, and no later call will succeed. [platform thread] */
  _TAVOManagerRef* (*Initialize)(void);

  /* Drops the clients in the order of their creation, then the server, then the intent service.
   * Their last slots (OnDisconnect, Release) are called before this returns. If this is called from
   * one of their callbacks, the object of that callback lives until the callback returns, and its
   * last slots are called then. The manager stays usable and makes new objects. An unknown handle
   * is ignored. [platform thread] */
  void (*Release)(_TAVOManagerRef* manager);

  /* Returns the intent service; the handle stays the same until Release. Null: unknown handle, or
   * the service could not be created. [platform thread] [event loop] */
  _TAVOIntentManagerRef* (*GetIntentManager)(_TAVOManagerRef* manager);
  ForgeResult (*IntentManagerProcTableLoad)(TAVOIntentManagerProcTable* table, unsigned int size);

  /* Returns a new client at each call. Null: unknown handle, or it could not be created.
   * [platform thread] */
  _TAVORpcClientRef* (*CreateRpcClient)(_TAVOManagerRef* manager);
  ForgeResult (*RpcClientProcTableLoad)(TAVORpcClientProcTable* table, unsigned int size);

  /* Returns the server; the handle stays the same until Release. Null, without a line: unknown
   * handle, or it could not be created. [platform thread] */
  _TAVORpcServerRef* (*GetRpcServer)(_TAVOManagerRef* manager);
  ForgeResult (*RpcServerProcTableLoad)(TAVORpcServerProcTable* table, unsigned int size);
} TAVOProcTable;

/* Fills the top table. 0: filled. 2, and a log line: `table` is null. The other tables' loaders
 * have the same contract. [any thread] */
ForgeResult TAVOProcTableLoad(TAVOProcTable* table, uint32_t size);

#pragma GCC visibility pop

/* ---- The layout is fixed --------------------------------------------------------------------- */

#define TAVO_FIELD_IS(type, field, index) \
  static_assert(offsetof(type, field) == (index) * sizeof(void*), #type "." #field " moved")
#define TAVO_FIELDS_ARE(type, count) \
  static_assert(sizeof(type) == (count) * sizeof(void*), #type " changed its size")

TAVO_FIELD_IS(TAVORpcClientSlots, OnStarted, 1);
TAVO_FIELD_IS(TAVORpcClientSlots, OnDisconnect, 2);
TAVO_FIELD_IS(TAVORpcClientSlots, OnMessage, 3);
TAVO_FIELD_IS(TAVORpcClientSlots, Release, 4);
TAVO_FIELD_IS(TAVORpcClientSlots, user_data, 5);
TAVO_FIELDS_ARE(TAVORpcClientSlots, 6);

TAVO_FIELD_IS(TAVORpcServerSlots, OnStarted, 1);
TAVO_FIELD_IS(TAVORpcServerSlots, OnMessage, 2);
TAVO_FIELD_IS(TAVORpcServerSlots, Release, 3);
TAVO_FIELD_IS(TAVORpcServerSlots, user_data, 4);
TAVO_FIELDS_ARE(TAVORpcServerSlots, 5);

TAVO_FIELD_IS(TAVOOpenUriSlot, callback, 1);
TAVO_FIELD_IS(TAVOOpenUriSlot, release, 2);
TAVO_FIELD_IS(TAVOOpenUriSlot, user_data, 3);
TAVO_FIELDS_ARE(TAVOOpenUriSlot, 4);

TAVO_FIELD_IS(TAVOReplyIntentSlot, reply, 1);
TAVO_FIELD_IS(TAVOReplyIntentSlot, release, 2);
TAVO_FIELD_IS(TAVOReplyIntentSlot, context, 3);
TAVO_FIELDS_ARE(TAVOReplyIntentSlot, 4);

TAVO_FIELD_IS(TAVORegisterIntentSlot, callback, 1);
TAVO_FIELD_IS(TAVORegisterIntentSlot, release, 2);
TAVO_FIELD_IS(TAVORegisterIntentSlot, user_data, 3);
TAVO_FIELDS_ARE(TAVORegisterIntentSlot, 4);

TAVO_FIELD_IS(TAVOIntentManagerProcTable, OpenUri, 1);
TAVO_FIELD_IS(TAVOIntentManagerProcTable, RegisterIntent, 2);
TAVO_FIELDS_ARE(TAVOIntentManagerProcTable, 3);

TAVO_FIELD_IS(TAVORpcClientProcTable, StartTask, 1);
TAVO_FIELD_IS(TAVORpcClientProcTable, UnlockResources, 2);
TAVO_FIELD_IS(TAVORpcClientProcTable, SendMessage, 3);
TAVO_FIELD_IS(TAVORpcClientProcTable, Release, 4);
TAVO_FIELDS_ARE(TAVORpcClientProcTable, 5);

TAVO_FIELD_IS(TAVORpcServerProcTable, Run, 1);
TAVO_FIELD_IS(TAVORpcServerProcTable, UnlockResources, 2);
TAVO_FIELD_IS(TAVORpcServerProcTable, SendMessage, 3);
TAVO_FIELDS_ARE(TAVORpcServerProcTable, 4);

TAVO_FIELD_IS(TAVOProcTable, Initialize, 1);
TAVO_FIELD_IS(TAVOProcTable, Release, 2);
TAVO_FIELD_IS(TAVOProcTable, GetIntentManager, 3);
TAVO_FIELD_IS(TAVOProcTable, IntentManagerProcTableLoad, 4);
TAVO_FIELD_IS(TAVOProcTable, CreateRpcClient, 5);
TAVO_FIELD_IS(TAVOProcTable, RpcClientProcTableLoad, 6);
TAVO_FIELD_IS(TAVOProcTable, GetRpcServer, 7);
TAVO_FIELD_IS(TAVOProcTable, RpcServerProcTableLoad, 8);
TAVO_FIELDS_ARE(TAVOProcTable, 9);

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(TAVOProcTable) == 36, "The 32-bit layout is fixed");
static_assert(sizeof(TAVOIntentManagerProcTable) == 12, "The 32-bit layout is fixed");
static_assert(sizeof(TAVORpcClientProcTable) == 20, "The 32-bit layout is fixed");
static_assert(sizeof(TAVORpcServerProcTable) == 16, "The 32-bit layout is fixed");
static_assert(sizeof(TAVORpcClientSlots) == 24, "The 32-bit layout is fixed");
static_assert(sizeof(TAVORpcServerSlots) == 20, "The 32-bit layout is fixed");
static_assert(sizeof(TAVOOpenUriSlot) == 16, "The 32-bit layout is fixed");
static_assert(sizeof(TAVORegisterIntentSlot) == 16, "The 32-bit layout is fixed");
static_assert(sizeof(TAVOReplyIntentSlot) == 16, "The 32-bit layout is fixed");
#endif

#undef TAVO_FIELD_IS
#undef TAVO_FIELDS_ARE

#ifdef __cplusplus
}
#endif

#endif /* TAVO_TAVO_CAPI_H_ */
