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

  LogCapture log_;
  Recorder recorder_;
};

}  // namespace test
