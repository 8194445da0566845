// What the system can be asked to do. The tests of failing allocations run each of these with
// memory that ends; those of re-entrancy run each of them in each of the callbacks.
#pragma once

#include "tests/reliability/world.h"

namespace test {

enum Trait : unsigned {
  kPlain = 0,
  kIsSure = 1,    // It is done whatever fails,
  kIsTold = 2,    // and so are the callbacks.
  kMayThrow = 4,  // To its C++ caller.
  kIsFinal = 16,  // What failed cannot be done again.
  kConnects = 8,  // A signal, where Qt leaks when its own allocation fails.
};

struct Scenario {
  const char* name;
  unsigned traits;
  std::vector<Callback> callbacks;  // Each is called if the scenario succeeds.
  void (World::*act)();
  void (World::*prepare)() = &World::Nothing;
};

inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

using W = World;
inline const Scenario kScenarios[]{
    {"GetParts", kConnects, {}, &W::GetParts, &W::ReleaseManager},
    {"ReleaseManager",
     kIsSure | kIsTold,
     {kDisconnect, kRelease},
     &W::ReleaseManager,
     &W::RunServer},
    {"StartTask", kPlain, {}, &W::StartRaw},
    {"TaskStarted", kIsSure | kIsTold | kConnects, {kStarted}, &W::Started, &W::StartRaw},
    {"TaskFailed", kIsSure | kIsTold, {kStarted}, &W::FailStart, &W::StartRaw},
    {"ClientSend", kPlain, {}, &W::Send},
    {"ClientMessage", kPlain, {kMessage}, &W::Receive},
    {"ClientRelease", kIsSure | kIsTold, {kDisconnect, kRelease}, &W::Release},
    {"ServerRun", kConnects, {kStarted}, &W::RunServer},
    {"ServerSend", kPlain, {}, &W::ServerSend, &W::RunServer},
    {"ServerMessage", kPlain, {kMessage}, &W::ServerReceive, &W::RunServer},
    {"GiveBack", kPlain, {}, &W::GiveBackTwice, &W::RunServer},
    {"OpenUri", kPlain, {kUri, kRelease}, &W::OpenUri},
    {"WrapperUri", kMayThrow, {kWrapperUri}, &W::OpenWrapperUri},
    {"RegisterIntent", kPlain, {kRelease}, &W::RegisterIntent},
    {"InvokeIntent", kMayThrow, {kIntent, kIntentAnswer}, &W::InvokeIntent},
    {"CreateWrapper", kMayThrow, {}, &W::CreateWrapper},
    {"Connect", kMayThrow | kIsFinal | kConnects, {kConnected, kServerConnected}, &W::Connect},
    {"FailedConnection", kIsSure, {kConnected}, &W::FailStart, &W::CreateClient},
    {"Request", kMayThrow, {kRequest, kNotification, kResponse}, &W::Request, &W::Connect},
    {"ListenAgain", kMayThrow, {}, &W::ListenAgain, &W::Connect},
    {"Disconnect", kIsSure, {kDisconnected, kResponse}, &W::ReleaseManager, &W::SendRequests},
    {"DropWrapper", kPlain, {}, &W::DropWrapper, &W::SendRequests},
};

}  // namespace test
