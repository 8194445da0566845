// What a caller does. Each function is a sample of docs/kit.md.
#include <chrono>
#include <future>
#include <vector>

#include "samples.h"

namespace samples {
namespace {

using namespace std::chrono_literals;

bool CallWithTimeout() {
  Link link;
  auto& caller = link.caller;
  const auto say = [&link](const std::string& word) { link.Say(word); };
  std::vector<kit::Request<Size>> asleep;
  link.responder->Handle(
      "measure", [&asleep](Area, const kit::Request<Size>& request) { asleep.push_back(request); });
  link.Connect();

  caller->Call<Size>(
      "measure", Area{Lens::kBack, 2},
      [say](kit::Result<Size> size) {
        if (size) return say("wide " + std::to_string(size->width));
        if (size.GetFailure().cause == kit::Cause::kTimeout) return say("The camera sleeps.");
        say(size.GetFailure().error.message);
      },
      kit::CallOptions().Timeout(5s));

  link.clock->Advance(5s);
  return Check("timeout", "The camera sleeps.", link.transcript.Take());
}

// Answers every measure at once.
void ServeSizes(Link& link) {
  link.responder->Handle("measure", [](Area area, const kit::Request<Size>& request) {
    request.Finish({1920 * area.zoom.value_or(1), 1080});
  });
  link.Connect();
}

bool ParallelCalls() {
  Link link;
  auto& caller = link.caller;
  ServeSizes(link);
  const auto wait = [&link] { link.clock->Advance(0ms); };

  std::vector<std::future<kit::Result<Size>>> sizes;
  for (const Lens lens : {Lens::kFront, Lens::kBack}) {
    sizes.push_back(caller->CallFuture<Size>("measure", Area{lens, 3}));
  }
  wait();  // A thread of your own may wait for the futures at once.
  for (auto& future : sizes) {
    const kit::Result<Size> size = future.get();
    if (size) link.Say(*size);
  }

  return Check("parallel calls", "5760x1080 5760x1080", link.transcript.Take());
}

bool StreamOfProgress() {
  Link link;
  auto& caller = link.caller;
  const auto show = [&link](double part) {
    link.Say(std::to_string(static_cast<int>(part * 100)));
  };
  std::vector<kit::Request<Size>> slow;
  link.responder->Handle(
      "scan", [&slow](Area, const kit::Request<Size>& request) { slow.push_back(request); });
  link.Connect();

  caller->Call<Size>(
      "scan", Area{}, [&link](kit::Result<Size> size) { link.Say(*size); },
      kit::CallOptions().Timeout(5s).ProgressRenews().OnProgress(
          [show](const cw::EncodableValue& value) {
            if (const auto part = kit::To<double>(value)) show(*part);
          }));

  for (const double part : {0.25, 0.5, 0.75}) {
    link.clock->Advance(4s);  // Each progress renews the time.
    slow[0].Progress(part);
  }
  slow[0].Finish({640, 480});
  return Check("progress", "25 50 75 640x480", link.transcript.Take());
}

bool Cancel() {
  Link link;
  auto& caller = link.caller;
  std::vector<kit::Request<Size>> slow;
  link.responder->Handle("scan", [&](Area, const kit::Request<Size>& request) {
    request.OnCancel([&link] { link.Say("stop"); });
    slow.push_back(request);
  });
  link.Connect();
  const auto on_size = [&link](const kit::Result<Size>& size) {
    link.Say(size ? "size" : size.GetFailure().error.message);
  };

  const kit::CallHandle call = caller->Call<Size>("scan", Area{}, on_size);
  call.Cancel();  // The callback is told kCancelled, the camera stops.
  {
    const kit::ScopedCall scope(caller->Call<Size>("scan", Area{}, on_size));
  }  // The camera stops, and the callback is never called.

  link.clock->Advance(0ms);
  return Check("cancel", "stop stop The call was cancelled.", link.transcript.Take());
}

bool TypedStruct() {
  Link link;
  // {"lens": "front", "zoom": 2}
  const cw::EncodableValue value = kit::From(Area{Lens::kFront, 2});
  const kit::Result<Area> area = kit::To<Area>(value, "params");
  const cw::EncodableMap damaged = {{"width", 1}, {"height", "tall"}};
  const kit::Result<Size> size = kit::To<Size>(damaged, "result");

  if (area) link.Say("zoom " + std::to_string(*area->zoom));
  if (!size) link.Say(size.GetFailure().error.message);
  return Check("typed struct", "zoom 2 result.height: an integer is expected, not a text",
               link.transcript.Take());
}

bool Notifications() {
  Link link;
  auto& caller = link.caller;
  auto& responder = link.responder;

  kit::Subscription sizes =
      caller->OnNotify<Size>("resized", [&link](const Size& size) { link.Say(size); });
  kit::Subscription seen =
      responder->OnNotify<int64_t>("seen", [&link](int64_t id) { link.Say(std::to_string(id)); });
  link.Connect();
  responder->Notify("resized", Size{800, 600});
  const bool is_sent = caller->Notify("seen", int64_t{7});  // False: lost, or too many wait.
  sizes.End();
  responder->Notify("resized", Size{1024, 768});  // Nobody listens any more.

  return is_sent && Check("notifications", "800x600 7", link.transcript.Take());
}

bool BackPressure() {
  Link link;
  std::vector<kit::Request<Size>> slow;
  link.responder->Handle(
      "scan", [&slow](Area, const kit::Request<Size>& request) { slow.push_back(request); });
  link.Connect();
  auto& client = link.client;
  auto& clock = link.clock;
  const auto on_size = [&link](const kit::Result<Size>& size) {
    link.Say(size ? "done" : size.GetFailure().error.message);
  };

  kit::Limits limits;
  limits.in_flight = 1;  // The others wait here, in order,
  limits.waiting = 1;    // but not more than this.
  const auto caller = kit::Caller::Create(client, clock, limits);
  for (int i = 0; i < 3; ++i) caller->Call<Size>("scan", Area{}, on_size);
  caller->OnWritable([&link] { link.Say("again"); });

  clock->Advance(0ms);
  slow[0].Finish({});
  clock->Advance(0ms);
  return Check("back-pressure", "Too many calls are open. done again", link.transcript.Take());
}

bool HandMovedClock() {
  Link link;
  auto& client = link.client;
  std::vector<kit::Request<Size>> slow;
  link.responder->Handle(
      "scan", [&slow](Area, const kit::Request<Size>& request) { slow.push_back(request); });
  link.Connect();
  const auto on_size = [&link](const kit::Result<Size>& size) {
    link.Say(size ? "size" : size.GetFailure().error.message);
  };

  const auto clock = std::make_shared<kit::ManualClock>();
  const auto caller = kit::Caller::Create(client, clock);
  caller->Call<Size>("scan", Area{}, on_size, kit::CallOptions().Timeout(5s));
  clock->Advance(4999ms);
  link.Say("It waits.");
  clock->Advance(1ms);  // Now it has timed out.

  return Check("hand-moved clock", "It waits. The peer has not answered in time.",
               link.transcript.Take());
}

}  // namespace

bool RunCallSamples() {
  bool is_good = true;
  for (const auto sample : {CallWithTimeout, ParallelCalls, StreamOfProgress, Cancel, TypedStruct,
                            Notifications, BackPressure, HandMovedClock}) {
    is_good = sample() && is_good;
  }
  return is_good;
}

}  // namespace samples
