// The service core over the fake platform, reached through its tables as a caller would.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "src/tavo_capi.h"
#include "tests/support/fake_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace test {

// Slots of a client or a server that write down what they are told.
struct Recorder {
  std::vector<std::string> events;
  unsigned int last_chunk = 0;

  void Note(const std::string& event, unsigned int chunk) {
    events.push_back(event);
    last_chunk = chunk;
  }
  std::vector<std::string> Take() { return std::exchange(events, {}); }

  static std::string Describe(const char* name, int code, const char* text) {
    return std::string(name) + " " + std::to_string(code) + " <" + text + ">";
  }
  static void OnStarted(void* self, int code, const char* text, unsigned int chunk) {
    static_cast<Recorder*>(self)->Note(Describe("started", code, text), chunk);
  }
  static void OnDisconnect(void* self, int code, const char* text, unsigned int chunk) {
    static_cast<Recorder*>(self)->Note(Describe("disconnect", code, text), chunk);
  }
  static void OnMessage(void* self, const char* text, unsigned int chunk) {
    static_cast<Recorder*>(self)->Note("message <" + std::string(text) + ">", chunk);
  }
  static void OnRelease(void* self) { static_cast<Recorder*>(self)->Note("release", 0); }

  TAVORpcClientSlots ClientSlots() {
    return {sizeof(TAVORpcClientSlots), OnStarted, OnDisconnect, OnMessage, OnRelease, this};
  }
  TAVORpcServerSlots ServerSlots() {
    return {sizeof(TAVORpcServerSlots), OnStarted, OnMessage, OnRelease, this};
  }
};

using Events = std::vector<std::string>;

class ServiceTest : public TestBase {
 protected:
  ServiceTest() {
    TAVOProcTableLoad(&top_, sizeof top_);
    top_.RpcClientProcTableLoad(&client_table_, sizeof client_table_);
    top_.RpcServerProcTableLoad(&server_table_, sizeof server_table_);
    top_.IntentManagerProcTableLoad(&intent_table_, sizeof intent_table_);
    manager_ = top_.Initialize();
  }
  void TearDown() override {
    top_.Release(manager_);  // While the test's members still live: callbacks come.
    TestBase::TearDown();
  }

  _TAVORpcClientRef* StartedClient(Recorder& recorder) {
    _TAVORpcClientRef* client = top_.CreateRpcClient(manager_);
    TAVORpcClientSlots slots = recorder.ClientSlots();
    EXPECT_EQ(FORGE_RESULT_OK, client_table_.StartTask(client, "worker", "/libs", &slots));
    return client;
  }

  _TAVORpcClientRef* RunningClient(Recorder& recorder) {
    _TAVORpcClientRef* client = StartedClient(recorder);
    platform_.tasks.back()->Started();
    EXPECT_EQ(Events{"started 0 <>"}, recorder.Take());
    return client;
  }

  LogCapture log_;
  FakePlatform platform_;
  TAVOProcTable top_{};
  TAVORpcClientProcTable client_table_{};
  TAVORpcServerProcTable server_table_{};
  TAVOIntentManagerProcTable intent_table_{};
  _TAVOManagerRef* manager_ = nullptr;
};

}  // namespace test
