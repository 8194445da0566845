/* A C11 program that drives the library through dlsym. It is built with and without unwind tables:
 * nothing that it does may need them. Ends with 0 when all is right.
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
  RefusesWhatMakesNoSense(load, &top);
  NullTextEndsACCaller(&top);
  return failures != 0;
}
