// What a plug-in has: the wrapper over libtavo.so, loaded by path, over the desk, with tasks in
// processes of their own.
#pragma once

#include "tests/support/desk_fixture.h"
#include "wrapper/manager_wrapper.h"

namespace test {

class PluginTest : public DeskTest {
 protected:
  using Client = std::shared_ptr<flrpc::IClient>;

  void TearDown() override {
    manager_.reset();
    DeskTest::TearDown();
  }

  Client Connect() {
    Client client = manager_->CreateIpcClient("wrapper_task");
    client->Run();
    EXPECT_TRUE(WaitUntil([&] { return client->IsConnected(); }));
    return client;
  }

  static flrpc::Message::Response Request(const Client& client, const char* method,
                                          const cw::EncodableValue& params = {}) {
    std::optional<flrpc::Message::Response> answer;
    client->SendRequest(method, params, [&](const auto& response) { answer = response; });
    EXPECT_TRUE(WaitUntil([&] { return answer.has_value(); }));
    return *answer;
  }

  std::unique_ptr<tavo::ManagerWrapper> manager_ =
      tavo::ManagerWrapper::Create(nullptr, TAVO_TEST_LIBS);
};

}  // namespace test
