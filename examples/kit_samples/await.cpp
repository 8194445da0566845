// A coroutine, in C++20: a sample of docs/kit.md.
#include <kit/await.h>

#include <chrono>
#include <coroutine>
#include <exception>

#include "samples.h"

namespace samples {
namespace {

using namespace std::chrono_literals;

// The smallest type of a coroutine: it runs by itself.
struct Task {
  struct promise_type {
    Task get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
};

Task ShowSizes(kit::Caller& caller, Link& link) {
  const auto front = co_await caller.CallAwait<Size>("measure", Area{Lens::kFront, {}});
  const auto back = co_await caller.CallAwait<Size>("measure", Area{Lens::kBack, 2});
  if (front && back) link.Say(Size{front->width, back->width});
}

bool Await() {
  Link link;
  link.responder->Handle("measure", [](Area area, const kit::Request<Size>& request) {
    request.Finish({1920 * area.zoom.value_or(1), 1080});
  });
  link.Connect();
  ShowSizes(*link.caller, link);
  link.clock->Advance(0ms);
  return Check("await", "1920x3840", link.transcript.Take());
}

}  // namespace

bool RunAwaitSamples() { return Await(); }

}  // namespace samples
