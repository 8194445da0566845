/* A literal copy of every table and slot structure of the C interface, in C11, held against the
 * header field by field. Whoever appends an entry there appends it here in the same commit;
 * nothing else may ever change. It does not link to anything: that it compiles is the test. */
#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "src/tavo_capi.h"

typedef struct {
  uint32_t struct_size;
  const uint8_t* data;
  size_t size;
} CopyOfForgeBufferView;

typedef struct {
  uint32_t size;
  void (*OnStarted)(void*, int, const char*, unsigned int);
  void (*OnDisconnect)(void*, int, const char*, unsigned int);
  void (*OnMessage)(void*, const char*, unsigned int);
  void (*Release)(void*);
  void* user_data;
} CopyOfTAVORpcClientSlots;

typedef struct {
  uint32_t size;
  void (*OnStarted)(void*, int, const char*, unsigned int);
  void (*OnMessage)(void*, const char*, unsigned int);
  void (*Release)(void*);
  void* user_data;
} CopyOfTAVORpcServerSlots;

typedef struct {
  uint32_t size;
  void (*callback)(void*, bool);
  void (*release)(void*);
  void* user_data;
} CopyOfTAVOOpenUriSlot;

typedef struct {
  uint32_t size;
  void (*reply)(void*, const uint8_t*, unsigned int);
  void (*release)(void*);
  void* context;
} CopyOfTAVOReplyIntentSlot;

typedef struct {
  uint32_t size;
  void (*callback)(void*, TAVOReplyIntentSlot*);
  void (*release)(void*);
  void* user_data;
} CopyOfTAVORegisterIntentSlot;

typedef struct {
  uint32_t size;
  unsigned int (*OpenUri)(_TAVOIntentManagerRef*, const char*, TAVOOpenUriSlot*);
  unsigned int (*RegisterIntent)(_TAVOIntentManagerRef*, const char*, TAVORegisterIntentSlot*);
} CopyOfTAVOIntentManagerProcTable;

typedef struct {
  uint32_t size;
  unsigned int (*StartTask)(_TAVORpcClientRef*, const char*, const char*, TAVORpcClientSlots*);
  void (*UnlockResources)(_TAVORpcClientRef*, unsigned int);
  unsigned int (*SendMessage)(_TAVORpcClientRef*, const char*);
  void (*Release)(_TAVORpcClientRef*);
} CopyOfTAVORpcClientProcTable;

typedef struct {
  uint32_t size;
  void (*Run)(_TAVORpcServerRef*, TAVORpcServerSlots*);
  void (*UnlockResources)(_TAVORpcServerRef*, unsigned int);
  unsigned int (*SendMessage)(_TAVORpcServerRef*, const char*);
} CopyOfTAVORpcServerProcTable;

typedef struct {
  uint32_t size;
  _TAVOManagerRef* (*Initialize)(void);
  void (*Release)(_TAVOManagerRef*);
  _TAVOIntentManagerRef* (*GetIntentManager)(_TAVOManagerRef*);
  unsigned int (*IntentManagerProcTableLoad)(TAVOIntentManagerProcTable*, unsigned int);
  _TAVORpcClientRef* (*CreateRpcClient)(_TAVOManagerRef*);
  unsigned int (*RpcClientProcTableLoad)(TAVORpcClientProcTable*, unsigned int);
  _TAVORpcServerRef* (*GetRpcServer)(_TAVOManagerRef*);
  unsigned int (*RpcServerProcTableLoad)(TAVORpcServerProcTable*, unsigned int);
} CopyOfTAVOProcTable;

/* The same place and exactly the same type. */
#define FIELD(type, field)                                                                   \
  static_assert(offsetof(type, field) == offsetof(CopyOf##type, field),                      \
                #type "." #field " moved");                                                  \
  static_assert(                                                                             \
      _Generic(&((type*)0)->field, __typeof__(&((CopyOf##type*)0)->field) : 1, default : 0), \
      #type "." #field " changed its type")

/* Nothing beside the fields; and the size on the 32-bit target. */
#define WHOLE(type, size_on_32_bits)                                              \
  static_assert(sizeof(type) == sizeof(CopyOf##type), #type " changed its size"); \
  static_assert(sizeof(void*) != 4 || sizeof(type) == (size_on_32_bits), #type " on 32 bits")

FIELD(ForgeBufferView, struct_size);
FIELD(ForgeBufferView, data);
FIELD(ForgeBufferView, size);
WHOLE(ForgeBufferView, 12);

FIELD(TAVORpcClientSlots, size);
FIELD(TAVORpcClientSlots, OnStarted);
FIELD(TAVORpcClientSlots, OnDisconnect);
FIELD(TAVORpcClientSlots, OnMessage);
FIELD(TAVORpcClientSlots, Release);
FIELD(TAVORpcClientSlots, user_data);
WHOLE(TAVORpcClientSlots, 24);

FIELD(TAVORpcServerSlots, size);
FIELD(TAVORpcServerSlots, OnStarted);
FIELD(TAVORpcServerSlots, OnMessage);
FIELD(TAVORpcServerSlots, Release);
FIELD(TAVORpcServerSlots, user_data);
WHOLE(TAVORpcServerSlots, 20);

FIELD(TAVOOpenUriSlot, size);
FIELD(TAVOOpenUriSlot, callback);
FIELD(TAVOOpenUriSlot, release);
FIELD(TAVOOpenUriSlot, user_data);
WHOLE(TAVOOpenUriSlot, 16);

FIELD(TAVOReplyIntentSlot, size);
FIELD(TAVOReplyIntentSlot, reply);
FIELD(TAVOReplyIntentSlot, release);
FIELD(TAVOReplyIntentSlot, context);
WHOLE(TAVOReplyIntentSlot, 16);

FIELD(TAVORegisterIntentSlot, size);
FIELD(TAVORegisterIntentSlot, callback);
FIELD(TAVORegisterIntentSlot, release);
FIELD(TAVORegisterIntentSlot, user_data);
WHOLE(TAVORegisterIntentSlot, 16);

FIELD(TAVOIntentManagerProcTable, size);
FIELD(TAVOIntentManagerProcTable, OpenUri);
FIELD(TAVOIntentManagerProcTable, RegisterIntent);
WHOLE(TAVOIntentManagerProcTable, 12);

FIELD(TAVORpcClientProcTable, size);
FIELD(TAVORpcClientProcTable, StartTask);
FIELD(TAVORpcClientProcTable, UnlockResources);
FIELD(TAVORpcClientProcTable, SendMessage);
FIELD(TAVORpcClientProcTable, Release);
WHOLE(TAVORpcClientProcTable, 20);

FIELD(TAVORpcServerProcTable, size);
FIELD(TAVORpcServerProcTable, Run);
FIELD(TAVORpcServerProcTable, UnlockResources);
FIELD(TAVORpcServerProcTable, SendMessage);
WHOLE(TAVORpcServerProcTable, 16);

FIELD(TAVOProcTable, size);
FIELD(TAVOProcTable, Initialize);
FIELD(TAVOProcTable, Release);
FIELD(TAVOProcTable, GetIntentManager);
FIELD(TAVOProcTable, IntentManagerProcTableLoad);
FIELD(TAVOProcTable, CreateRpcClient);
FIELD(TAVOProcTable, RpcClientProcTableLoad);
FIELD(TAVOProcTable, GetRpcServer);
FIELD(TAVOProcTable, RpcServerProcTableLoad);
WHOLE(TAVOProcTable, 36);
