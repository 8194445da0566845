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

  static std::unique_ptr<tavo::ManagerWrapper> Load() {
    return tavo::ManagerWrapper::Create(nullptr, TAVO_TEST_LIBS);
  }

  // A client whose connection is known, for better or worse.
  Client Connect(const char* task = "wrapper_task") {
    Client client = manager_->CreateIpcClient(task);
    bool is_known = false;
    client->OnConnected([&is_known](const auto&) { is_known = true; });
    client->Run();
    EXPECT_TRUE(WaitUntil([&is_known] { return is_known; }));
    return client;
  }

  static flrpc::Message::Response Request(const Client& client, const char* method,
                                          const cw::EncodableValue& params = {}) {
    std::optional<flrpc::Message::Response> answer;
    client->SendRequest(method, params, [&](const auto& response) { answer = response; });
    EXPECT_TRUE(WaitUntil([&] { return answer.has_value(); }));
    return *answer;
  }

  std::unique_ptr<tavo::ManagerWrapper> manager_ = Load();
};

}  // namespace test
