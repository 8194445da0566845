/* Prints the SHA-256 digests of files, as sha256sum does. The digests are made by a task
 * application, "digest", that this program starts and talks to through libtavo.so. It also opens
 * URIs.
 *
 * A complete C user of the library: load it, bind its tables by the size rule, start a task, send
 * and receive texts, give chunks back, stop the task, ask for a URI to be opened. */
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "desk/runtime_manager/event_loop.h"
#include "src/tavo_capi.h"

enum { kWindow = 16 }; /* The number of requests in flight. */

enum { kOk = 0, kSomeFilesFailed = 1, kCannotRun = 2 };

typedef struct Launcher {
  char* libs_path;      /* An absolute path: the task may run in another directory. */
  const char* uri;      /* The URI to open at the end; null: none. */
  unsigned int timeout; /* After so many seconds without an answer the task counts as dead. */
  TAVOProcTable top;
  TAVORpcClientProcTable table;
  TAVOIntentManagerProcTable intents;
  _TAVOManagerRef* manager;
  _TAVORpcClientRef* client;

  char** paths;
  size_t path_count;
  char** answers; /* One for each path; null until it has come. */
  size_t sent;
  size_t printed;
  int exit_code;
} Launcher;

/* ---- Texts ---- */

static void* OrDie(void* memory) {
  if (!memory) {
    fputs("c_launcher: out of memory\n", stderr);
    exit(kCannotRun);
  }
  return memory;
}

static char* Join(const char* first, const char* second) {
  char* text = OrDie(malloc(strlen(first) + strlen(second) + 2));
  sprintf(text, "%s/%s", first, second);
  return text;
}

static char* Absolute(const char* path) {
  if (path[0] == '/') return OrDie(strdup(path));
  char* here = OrDie(getcwd(NULL, 0));
  char* absolute = Join(here, path);
  free(here);
  return absolute;
}

/* "<number> <absolute path, percent-encoded>" */
static char* RequestFor(size_t number, const char* path) {
  char* absolute = Absolute(path);
  char* request = OrDie(malloc(32 + 3 * strlen(absolute)));
  char* end = request + sprintf(request, "%zu ", number);
  for (const char* at = absolute; *at; ++at) {
    const unsigned char byte = (unsigned char)*at;
    const int plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                      (byte >= 'a' && byte <= 'z') || strchr("/._-", byte);
    end += sprintf(end, plain ? "%c" : "%%%02X", byte);
  }
  free(absolute);
  return request;
}

/* Like sha256sum, escapes a name with a backslash or a line break and marks the line. */
static void PrintDigest(const char* digest, const char* path) {
  if (strpbrk(path, "\\\n\r")) putchar('\\');
  printf("%s  ", digest);
  for (const char* at = path; *at; ++at) {
    switch (*at) {
      case '\\':
        fputs("\\\\", stdout);
        break;
      case '\n':
        fputs("\\n", stdout);
        break;
      case '\r':
        fputs("\\r", stdout);
        break;
      default:
        putchar(*at);
    }
  }
  putchar('\n');
}

/* ---- Paths ---- */

static void AddPath(Launcher* self, const char* path);

static int IsNotDotOrDotDot(const struct dirent* entry) {
  return strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0;
}

static void AddDirectory(Launcher* self, const char* path) {
  struct dirent** entries = NULL;
  const int count = scandir(path, &entries, IsNotDotOrDotDot, alphasort);
  if (count < 0) {
    fprintf(stderr, "c_launcher: %s: %s\n", path, strerror(errno));
    self->exit_code = kSomeFilesFailed;
  }
  for (int i = 0; i < count; ++i) {
    char* below = Join(path, entries[i]->d_name);
    struct stat status;
    if (lstat(below, &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))) {
      AddPath(self, below);
    }
    free(below);
    free(entries[i]);
  }
  free(entries);
}

static void AddPath(Launcher* self, const char* path) {
  struct stat status;
  if (stat(path, &status) == 0 && S_ISDIR(status.st_mode)) {
    AddDirectory(self, path);
    return;
  }
  self->paths = OrDie(realloc(self->paths, (self->path_count + 1) * sizeof *self->paths));
  self->paths[self->path_count++] = OrDie(strdup(path));
}

/* ---- The conversation ---- */

static void Leave(Launcher* self, int exit_code) {
  if (exit_code > self->exit_code) self->exit_code = exit_code;
  TAVODeskLeaveLoop(self->exit_code);
}

/* A caller is not told that a task has died. If it lives, the desk ends it with this process. */
static void OnAlarm(int signal_number) {
  static const char kText[] = "c_launcher: the task does not answer\n";
  (void)signal_number;
  if (write(STDERR_FILENO, kText, sizeof kText - 1) < 0) _exit(kCannotRun);
  _exit(kCannotRun);
}

static void SendMore(Launcher* self) {
  while (self->sent < self->path_count && self->sent < self->printed + kWindow) {
    char* request = RequestFor(self->sent, self->paths[self->sent]);
    if (self->table.SendMessage(self->client, request) != FORGE_RESULT_OK) {
      fputs("c_launcher: the task cannot be reached\n", stderr);
      Leave(self, kCannotRun);
    }
    free(request);
    ++self->sent;
  }
}

/* Answers are printed in the order of the paths. */
static void PrintAnswers(Launcher* self) {
  for (; self->printed < self->path_count && self->answers[self->printed]; ++self->printed) {
    const char* path = self->paths[self->printed];
    const char* answer = self->answers[self->printed];
    if (strncmp(answer, "ok ", 3) == 0) {
      PrintDigest(answer + 3, path);
    } else {
      const char* cause = strchr(answer, ' ');
      fprintf(stderr, "c_launcher: %s: %s\n", path, cause ? cause + 1 : answer);
      self->exit_code = kSomeFilesFailed;
    }
  }
}

static void OnStarted(void* user_data, int code, const char* text, unsigned int chunk_id) {
  Launcher* self = user_data;
  if (code != 0) {
    fprintf(stderr, "c_launcher: %s\n", text);
    self->table.UnlockResources(self->client, chunk_id);
    Leave(self, kCannotRun);
    return;
  }
  alarm(self->timeout);
  SendMore(self);
}

static void OnMessage(void* user_data, const char* text, unsigned int chunk_id) {
  Launcher* self = user_data;
  char* answer = NULL;
  const unsigned long number = strtoul(text, &answer, 10);
  if (number < self->sent && *answer == ' ' && !self->answers[number]) {
    self->answers[number] = OrDie(strdup(answer + 1));
  }
  self->table.UnlockResources(self->client, chunk_id);
  alarm(self->timeout);
  PrintAnswers(self);
  SendMore(self);
  if (self->printed == self->path_count) self->table.Release(self->client); /* Stops the task. */
}

static void OnOpened(void* user_data, bool success) {
  Launcher* self = user_data;
  if (success) {
    printf("opened %s\n", self->uri);
  } else {
    fprintf(stderr, "c_launcher: %s: could not be opened\n", self->uri);
  }
  Leave(self, success ? kOk : kSomeFilesFailed);
}

/* The last steps, when all files are done. */
static void Finish(Launcher* self) {
  if (!self->uri) {
    Leave(self, kOk);
    return;
  }
  alarm(0); /* The opener may ask the user first. */
  TAVOOpenUriSlot slot = {sizeof slot, OnOpened, NULL, self};
  if (!self->intents.OpenUri || self->intents.OpenUri(self->top.GetIntentManager(self->manager),
                                                      self->uri, &slot) != FORGE_RESULT_OK) {
    fputs("c_launcher: no URI can be opened\n", stderr);
    Leave(self, kCannotRun);
  }
}

/* The last callback: the task has stopped, or never ran. */
static void OnReleased(void* user_data) {
  Launcher* self = user_data;
  if (self->exit_code < kCannotRun) Finish(self);
}

static void Begin(void* user_data) {
  Launcher* self = user_data;
  if (self->path_count == 0) {
    Finish(self);
    return;
  }
  TAVORpcClientSlots slots = {sizeof slots, OnStarted, NULL, OnMessage, OnReleased, self};
  self->client = self->top.CreateRpcClient(self->manager);
  if (self->table.StartTask(self->client, "digest", self->libs_path, &slots) != FORGE_RESULT_OK) {
    fputs("c_launcher: the task cannot be started\n", stderr);
    Leave(self, kCannotRun);
  }
}

/* ---- The library ---- */

static int BindLibrary(Launcher* self) {
  char* file = Join(self->libs_path, "libtavo.so");
  void* library = dlopen(file, RTLD_NOW);
  free(file);
  if (!library) {
    fprintf(stderr, "c_launcher: %s\n", dlerror());
    return 0;
  }
  ForgeResult (*load)(TAVOProcTable*, uint32_t) = NULL;
  *(void**)&load = dlsym(library, "TAVOProcTableLoad");
  if (!load || load(&self->top, sizeof self->top) != FORGE_RESULT_OK ||
      !self->top.RpcClientProcTableLoad || !self->top.IntentManagerProcTableLoad ||
      self->top.RpcClientProcTableLoad(&self->table, sizeof self->table) != FORGE_RESULT_OK ||
      self->top.IntentManagerProcTableLoad(&self->intents, sizeof self->intents) !=
          FORGE_RESULT_OK) {
    fputs("c_launcher: libtavo.so offers no tables\n", stderr);
    return 0;
  }
  self->manager = self->top.Initialize();
  return self->manager != NULL;
}

static void Free(Launcher* self) {
  for (size_t i = 0; i < self->path_count; ++i) {
    free(self->paths[i]);
    free(self->answers[i]);
  }
  free(self->paths);
  free(self->answers);
  free(self->libs_path);
}

static int Usage(FILE* stream, int exit_code) {
  fputs(
      "usage: c_launcher --libs-path DIRECTORY [--timeout SECONDS] [--open URI] [--] [PATH...]\n"
      "\n"
      "Prints the SHA-256 digest of each file, as sha256sum does; a directory means the files\n"
      "below it. DIRECTORY holds libtavo.so; the task application \"digest\" is found through\n"
      "TAVO_DESK_PATH. A task that gives no answer for SECONDS (60) counts as dead. At the end "
      "URI\n"
      "is opened, by whichever application offers that or as TAVO_DESK_OPEN_URI says.\n"
      "\n"
      "Ends with 0, 1 when a file could not be read or the URI could not be opened, 2 when the\n"
      "task or the library is missing.\n",
      stream);
  return exit_code;
}

/* Returns the index of the first path, argc if there is none; 0 when the options make no sense. */
static int ReadOptions(Launcher* self, int argc, char** argv) {
  int at = 1;
  for (; at + 1 < argc && strncmp(argv[at], "--", 2) == 0 && argv[at][2]; at += 2) {
    if (strcmp(argv[at], "--libs-path") == 0) {
      free(self->libs_path);
      self->libs_path = Absolute(argv[at + 1]);
    } else if (strcmp(argv[at], "--timeout") == 0) {
      self->timeout = (unsigned int)strtoul(argv[at + 1], NULL, 10);
    } else if (strcmp(argv[at], "--open") == 0) {
      self->uri = argv[at + 1];
    } else {
      return 0;
    }
  }
  if (at < argc && strcmp(argv[at], "--") == 0) ++at;
  return self->libs_path && self->timeout > 0 && (at < argc || self->uri) ? at : 0;
}

int main(int argc, char** argv) {
  if (argc == 2 && strcmp(argv[1], "--help") == 0) return Usage(stdout, kOk);
  Launcher launcher = {.timeout = 60};
  const int first = ReadOptions(&launcher, argc, argv);
  if (first == 0) {
    Free(&launcher);
    return Usage(stderr, kCannotRun);
  }
  for (int i = first; i < argc; ++i) AddPath(&launcher, argv[i]);
  launcher.answers = OrDie(calloc(launcher.path_count + 1, sizeof *launcher.answers));
  int exit_code = launcher.exit_code;
  if (launcher.path_count > 0 || launcher.uri) {
    signal(SIGALRM, OnAlarm);
    exit_code = BindLibrary(&launcher) ? TAVODeskRunLoop(Begin, &launcher) : kCannotRun;
    if (launcher.manager) launcher.top.Release(launcher.manager);
  }
  Free(&launcher);
  if (fflush(stdout) != 0 || ferror(stdout)) {
    perror("c_launcher: standard output");
    return kCannotRun;
  }
  return exit_code;
}
