/* A plug-in in C for the test of tavo-embed. Its first argument tells what it is to do:
 * "exit N": exits with N from a task; "refuse": its registration answers 0; "stay": nothing;
 * "serve": answers on the channel "echo", sends what "ask" brings to "dart" and tells the answer,
 * and exits with 5 when "bye" comes. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/flutter_ostrel/flutter_ostrel.h"

static _FlutterOstrelApplication* application;
static FlutterOstrelApplicationProcTable applications = {.size = sizeof applications};
static FlutterOstrelMessengerProcTable messenger = {.size = sizeof messenger};
static int code;

static void ExitNow(void* data) {
  (void)data;
  applications.Exit(application, code);
}

static void TellAnswer(const uint8_t* data, size_t size, void* user_data) {
  (void)user_data;
  printf("dart answers %zu bytes%s\n", size, data ? "" : " (null)");
  fflush(stdout);
}

static void Serve(_FlutterOstrelEngine* engine, const char* channel, const uint8_t* data,
                  size_t size, FlutterOstrelSendResponse respond, _FlutterOstrelResponse* response,
                  void* user_data) {
  static const uint8_t failure[] = {1, 7, 1, 'E', 0, 3, 9, 0, 0, 0};
  (void)user_data;
  if (strcmp(channel, "echo") == 0) {
    respond(engine, response, data, size);
  } else if (strcmp(channel, "ask") == 0) {
    messenger.Send(engine, "dart", data, size, TellAnswer, NULL);
    respond(engine, response, NULL, 0);
  } else {
    respond(engine, response, failure, sizeof failure);
    applications.Exit(application, 5);
  }
}

static void OnDestroyed(_FlutterOstrelEngine* engine) {
  (void)engine;
  printf("destroyed\n");
  fflush(stdout);
}

/* An older embedder may lack anything; this plug-in does without nothing. */
static bool LoadTables(const FlutterOstrelPluginContext* context) {
  if (!FLUTTER_OSTREL_HAS(context, ApplicationProcTableLoad) ||
      !FLUTTER_OSTREL_HAS(context, MessengerProcTableLoad)) {
    return false;
  }
  application = context->application;
  return context->ApplicationProcTableLoad(&applications, sizeof applications, application) &&
         context->MessengerProcTableLoad(&messenger, sizeof messenger, context->engine) &&
         FLUTTER_OSTREL_HAS(&applications, Exit) && FLUTTER_OSTREL_HAS(&messenger, Send) &&
         FLUTTER_OSTREL_HAS(&messenger, SetMessageHandler);
}

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  int count = 0;
  const char* const* arguments = NULL;
  if (!LoadTables(context)) return 0;
  applications.GetDartEntryPointArgs(application, &count, &arguments);
  if (count == 0 || strcmp(arguments[0], "refuse") == 0) return 0;
  if (strcmp(arguments[0], "exit") == 0 && count > 1) {
    const FlutterOstrelSlot slot = {sizeof slot, ExitNow, NULL, NULL};
    code = atoi(arguments[1]);
    applications.EnqueueTask(application, &slot, 0);
  } else if (strcmp(arguments[0], "serve") == 0) {
    messenger.SetMessageHandler(context->engine, "echo", Serve, NULL);
    messenger.SetMessageHandler(context->engine, "ask", Serve, NULL);
    messenger.SetMessageHandler(context->engine, "bye", Serve, NULL);
  }
  context->EngineDestroyedSubscribe(context->engine, OnDestroyed);
  printf("registered\n");
  fflush(stdout);
  return 1;
}
