/* A C11 program that drives the library through dlsym. It is built with and without unwind tables:
 * nothing that it does may need them. It asserts what must hold.
 * Usage: c_caller LIBTAVO */
#include <assert.h>
#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "src/tavo_capi.h"

/* The one exception that the header names ends a C caller. */
static void NullTextEndsACCaller(const TAVORpcClientProcTable* client) {
  const pid_t child = fork();
  if (child == 0) {
    close(STDERR_FILENO);
    client->StartTask(NULL, NULL, NULL, NULL);
    _exit(0);
  }
  int status = 0;
  assert(waitpid(child, &status, 0) == child);
  assert(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
}

int main(int argc, char** argv) {
  assert(argc == 2);
  void* library = dlopen(argv[1], RTLD_NOW);
  assert(library);
  ForgeResult (*load)(TAVOProcTable*, uint32_t) = NULL;
  *(void**)&load = dlsym(library, "TAVOProcTableLoad");
  TAVOProcTable top = {0};
  TAVORpcClientProcTable client = {0};
  assert(load(NULL, sizeof top) == FORGE_RESULT_INVALID_ARGUMENT);
  assert(load(&top, sizeof top) == FORGE_RESULT_OK);
  assert(top.RpcClientProcTableLoad(&client, sizeof client) == FORGE_RESULT_OK);
  _TAVOManagerRef* manager = top.Initialize();
  _TAVORpcClientRef* ref = top.CreateRpcClient(manager);
  assert(client.StartTask(ref, "", "/libs", NULL) == FORGE_RESULT_INVALID_ARGUMENT);
  assert(client.SendMessage(ref, NULL) == FORGE_RESULT_WRONG_STATE);
  for (int i = 0; i < 2; ++i) client.Release(ref);
  client.UnlockResources(ref, 7);
  assert(client.StartTask(ref, "name", "/libs", NULL) == FORGE_RESULT_INVALID_ARGUMENT);
  top.Release(manager);
  NullTextEndsACCaller(&client);
}
