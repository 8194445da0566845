/* A C11 program that drives the library through dlsym as old and new callers do. It is built with
 * and without unwind tables: nothing that it does may need them. Ends with 0 when all is right.
 * Usage: c_caller LIBTAVO */
#include <dlfcn.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "src/tavo_capi.h"

static int failures = 0;

static void Check(int holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "c_caller: failed: %s\n", what);
  ++failures;
}

typedef ForgeResult (*Loader)(TAVOProcTable*, uint32_t);

/* Callers of every age: the table as they know it, with something of theirs right behind it. */
static void LoadsAsMuchAsTheCallerKnows(Loader load) {
  union {
    TAVOProcTable table;
    unsigned char bytes[sizeof(TAVOProcTable) + 4];
  } memory;
  for (unsigned int fields = 1; fields <= 9; ++fields) {
    const unsigned int size = fields * (unsigned int)sizeof(void*);
    memset(&memory, 0xA5, sizeof memory);
    Check(load(&memory.table, size) == FORGE_RESULT_OK, "a table of any size is filled");
    Check(memory.table.size == size, "the size is stored");
    Check(memory.bytes[size] == 0xA5, "nothing behind the table is touched");
    Check(fields < 2 || memory.table.Initialize != NULL, "Initialize is filled");
    Check(fields < 9 || memory.table.RpcServerProcTableLoad != NULL, "the last entry is filled");
  }
  if (sizeof(void*) != 4) return;
  memset(&memory, 0xA5, sizeof memory);
  load(&memory.table, 10); /* Ends within the second entry. */
  Check(memory.table.Initialize != NULL && memory.bytes[8] == 0 && memory.bytes[9] == 0 &&
            memory.bytes[10] == 0xA5,
        "a declared size of 10 holds one entry");
  memset(&memory, 0xA5, sizeof memory);
  load(&memory.table, 20);
  Check(memory.table.IntentManagerProcTableLoad != NULL && memory.bytes[20] == 0xA5,
        "a declared size of 20 holds four entries");
}

static int told = 0;
static void* told_data = &told;

static void OnStarted(void* user_data, int code, const char* text, unsigned int chunk_id) {
  (void)code, (void)text, (void)chunk_id;
  ++told;
  told_data = user_data;
}
static void OnRelease(void* user_data) {
  (void)user_data;
  Check(0, "a slot that the declared size does not cover is not called");
}

/* A caller whose slot structure ends after its first callback. */
static void ReadsAsMuchAsTheCallerGives(const TAVOProcTable* top) {
  TAVORpcServerProcTable server = {0};
  Check(top->RpcServerProcTableLoad(&server, sizeof server) == FORGE_RESULT_OK, "server table");
  _TAVOManagerRef* manager = top->Initialize();
  TAVORpcServerSlots slots = {2 * sizeof(void*), OnStarted, NULL, OnRelease, &told};
  server.Run(top->GetRpcServer(manager), &slots);
  Check(told == 1 && told_data == NULL, "one callback, without user data");
  top->Release(manager);
}

static void RefusesWhatMakesNoSense(Loader load, const TAVOProcTable* top) {
  TAVORpcClientProcTable client = {0};
  Check(load(NULL, sizeof *top) == FORGE_RESULT_INVALID_ARGUMENT, "a null table");
  Check(top->RpcClientProcTableLoad(&client, sizeof client) == FORGE_RESULT_OK, "client table");
  _TAVOManagerRef* manager = top->Initialize();
  _TAVORpcClientRef* ref = top->CreateRpcClient(manager);
  _TAVORpcClientRef* stale = (_TAVORpcClientRef*)((uintptr_t)ref + 1000);
  Check(client.StartTask(ref, "", "/libs", NULL) == FORGE_RESULT_INVALID_ARGUMENT, "no name");
  Check(client.StartTask(stale, "x", "/libs", NULL) == FORGE_RESULT_INVALID_ARGUMENT, "stale");
  Check(client.SendMessage(ref, NULL) == FORGE_RESULT_WRONG_STATE, "a null text");
  Check(client.SendMessage(NULL, "x") == FORGE_RESULT_WRONG_STATE, "a null handle");
#if UINTPTR_MAX > UINT32_MAX
  _TAVORpcClientRef* wide = (_TAVORpcClientRef*)((uintptr_t)ref | (uintptr_t)1 << 32);
  Check(client.StartTask(wide, "x", "/libs", NULL) == FORGE_RESULT_INVALID_ARGUMENT, "wide");
#endif
  client.UnlockResources(stale, 7);
  client.Release(ref);
  client.Release(ref);
  top->Release(manager);
}

/* The one exception that the header names ends a C caller. */
static void NullTextEndsACCaller(const TAVOProcTable* top) {
  fflush(NULL);
  const pid_t child = fork();
  if (child == 0) {
    TAVORpcClientProcTable client = {0};
    top->RpcClientProcTableLoad(&client, sizeof client);
    close(STDERR_FILENO);
    client.StartTask(NULL, NULL, NULL, NULL);
    _exit(0);
  }
  int status = 0;
  Check(waitpid(child, &status, 0) == child && WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT,
        "a null name ends a C caller");
}

int main(int argc, char** argv) {
  void* library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
  Loader load = NULL;
  if (library) *(void**)&load = dlsym(library, "TAVOProcTableLoad");
  if (!load) {
    fprintf(stderr, "c_caller: %s\n", dlerror());
    return 1;
  }
  TAVOProcTable top = {0};
  load(&top, sizeof top);
  LoadsAsMuchAsTheCallerKnows(load);
  RefusesWhatMakesNoSense(load, &top);
  ReadsAsMuchAsTheCallerGives(&top);
  NullTextEndsACCaller(&top);
  return failures != 0;
}
