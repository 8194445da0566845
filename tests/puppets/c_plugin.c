/* A plug-in in C for the test of tavo-embed. Its first argument tells what it does: "exit N" exits
 * with N from a task; "refuse" answers 0 to the registration; "stay" does nothing; "serve" answers
 * on "echo", sends what "ask" brings to "dart" and prints the answer, and exits with 5 at "bye";
 * "careless" uses what an older embedder may lack, or waits for it, and exits with 5. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "platform/flutter_ostrel/flutter_ostrel.h"

static _FlutterOstrelApplication* self;
static FlutterOstrelApplicationProcTable app = {.size = sizeof app};
static FlutterOstrelMessengerProcTable messenger = {.size = sizeof messenger};
static int code = 5;

static void ExitNow(void* exit_code) { app.Exit(self, *(int*)exit_code); }

static void TellAnswer(const uint8_t* data, size_t size, void* output) {
  fprintf(output, "dart answers %zu bytes%s\n", size, data ? "" : " (null)");
}

static void Serve(_FlutterOstrelEngine* engine, const char* channel, const uint8_t* data,
                  size_t size, FlutterOstrelSendResponse respond, _FlutterOstrelResponse* response,
                  void* exit_code) {
  static const uint8_t failure[] = {1, 7, 1, 'E', 0, 3, 9, 0, 0, 0};
  if (strcmp(channel, "echo") == 0) {
    respond(engine, response, data, size);
  } else if (strcmp(channel, "ask") == 0) {
    messenger.Send(engine, "dart", data, size, TellAnswer, stdout);
    respond(engine, response, NULL, 0);
  } else {
    respond(engine, response, failure, sizeof failure);
    ExitNow(exit_code);
  }
}

static void OnDestroyed(_FlutterOstrelEngine* engine) { puts(engine ? "destroyed" : "no engine"); }

/* An older embedder may lack anything; this plug-in does without nothing. */
uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  int count = 0;
  const char* const* arguments = NULL;
  if (!FLUTTER_OSTREL_HAS(context, ApplicationProcTableLoad) ||
      !FLUTTER_OSTREL_HAS(context, MessengerProcTableLoad) ||
      !context->ApplicationProcTableLoad(&app, sizeof app, context->application) ||
      !context->MessengerProcTableLoad(&messenger, sizeof messenger, context->engine) ||
      !FLUTTER_OSTREL_HAS(&app, Exit) || !FLUTTER_OSTREL_HAS(&messenger, SetMessageHandler)) {
    return 0;
  }
  self = context->application;
  app.GetDartEntryPointArgs(self, &count, &arguments);
  if (count == 0 || arguments[count] || strcmp(arguments[0], "refuse") == 0) return 0;
  setvbuf(stdout, NULL, _IOLBF, 0);
  if (strcmp(arguments[0], "careless") == 0) {
    app.GetPath(self, 1, NULL, 0);
    while (!app.HasPermission) pause();
    ExitNow(&code);
  } else if (strcmp(arguments[0], "exit") == 0 && count > 1) {
    const FlutterOstrelSlot slot = {sizeof slot, ExitNow, NULL, &code};
    code = atoi(arguments[1]);
    app.EnqueueTask(self, &slot, 0);
  } else if (strcmp(arguments[0], "serve") == 0) {
    messenger.SetMessageHandler(context->engine, "echo", Serve, &code);
    messenger.SetMessageHandler(context->engine, "ask", Serve, &code);
    messenger.SetMessageHandler(context->engine, "bye", Serve, &code);
  }
  context->EngineDestroyedSubscribe(context->engine, OnDestroyed);
  puts("registered");
  return 1;
}
