// The process may end at any time, with clients and servers alive. Sanitizers watch.
#include <cstdlib>

#include <QCoreApplication>

#include "tests/src/service_fixture.h"

namespace {

class ExitTest : public test::ServiceTest {
 protected:
  // Everything alive: a client that runs, one that starts, one that stops, and a server.
  void StartAll(test::Recorder& recorder) {
    client_table_.Release(RunningClient(recorder));
    StartedClient(recorder);
    RunningClient(recorder);
    TAVORpcServerSlots slots = recorder.ServerSlots();
    server_table_.Run(top_.GetRpcServer(manager_), &slots);
  }
};

TEST_F(ExitTest, WithoutAnApplicationObject) {
  EXPECT_EXIT(
      {
        auto& recorder = *new test::Recorder;  // Told of the end, after main's statics.
        StartAll(recorder);
        exit(7);
      },
      testing::ExitedWithCode(7), "");
}

TEST_F(ExitTest, WithALivingApplicationObject) {
  EXPECT_EXIT(
      {
        static int argc = 0;
        auto& recorder = *new test::Recorder;  // Told of the end, after main's statics.
        static QCoreApplication app(argc, nullptr);
        StartAll(recorder);
        exit(8);
      },
      testing::ExitedWithCode(8), "");
}

TEST_F(ExitTest, WithinACallback) {
  EXPECT_EXIT(
      {
        auto& recorder = *new test::Recorder;  // Told of the end, after main's statics.
        StartAll(recorder);
        TAVORpcClientSlots slots{};
        slots.size = sizeof slots;
        slots.OnMessage = [](void*, const char*, unsigned int) { exit(9); };
        client_table_.StartTask(top_.CreateRpcClient(manager_), "worker", "/libs", &slots);
        platform_.tasks.back()->Started();
        platform_.messagings.back()->ReceiveText(QStringLiteral("text"));
      },
      testing::ExitedWithCode(9), "");
}

}  // namespace
