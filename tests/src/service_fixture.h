// The service core over the fake platform, reached through its tables as a caller would.
#pragma once

#include "src/tavo_capi.h"
#include "tests/support/fake_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/recorder.h"
#include "tests/support/test_base.h"

namespace test {

struct Service {
  Service() {
    TAVOProcTableLoad(&top, sizeof top);
    top.RpcClientProcTableLoad(&client_table, sizeof client_table);
    top.RpcServerProcTableLoad(&server_table, sizeof server_table);
    top.IntentManagerProcTableLoad(&intent_table, sizeof intent_table);
    manager = top.Initialize();
  }

  FakePlatform platform;
  TAVOProcTable top{};
  TAVORpcClientProcTable client_table{};
  TAVORpcServerProcTable server_table{};
  TAVOIntentManagerProcTable intent_table{};
  _TAVOManagerRef* manager = nullptr;
};

class ServiceTest : public TestBase, protected Service {
 protected:
  void TearDown() override {
    top.Release(manager);  // While the test's members still live: callbacks come.
    TestBase::TearDown();
  }

  _TAVORpcClientRef* StartedClient(Recorder& recorder) {
    _TAVORpcClientRef* client = top.CreateRpcClient(manager);
    TAVORpcClientSlots slots = recorder.ClientSlots();
    EXPECT_EQ(FORGE_RESULT_OK, client_table.StartTask(client, "worker", "/libs", &slots));
    return client;
  }

  _TAVORpcClientRef* RunningClient(Recorder& recorder) {
    _TAVORpcClientRef* client = StartedClient(recorder);
    platform.tasks.back()->Started();
    EXPECT_EQ(Events{"started 0 <>"}, recorder.Take());
    return client;
  }

  LogCapture log_;
};

}  // namespace test
