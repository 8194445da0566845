// The service core over the fake platform, reached through its tables as a caller would.
#pragma once

#include "src/tavo_capi.h"
#include "tests/support/fake_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/recorder.h"
#include "tests/support/test_base.h"

namespace test {

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
