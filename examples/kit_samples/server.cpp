// What a server does. Each function is a sample of docs/kit.md.
#include <chrono>

#include <queue>

#include "samples.h"

namespace samples {
namespace {

using namespace std::chrono_literals;

bool AnswerLater() {
  Link link;
  auto& responder = link.responder;
  const auto on_size = [&link](const kit::Result<Size>& size) {
    size ? link.Say(*size) : link.Say(size.GetFailure().error.message);
  };

  std::queue<kit::Request<Size>> scans;
  responder->Handle("scan", [&scans](const Area& area, const kit::Request<Size>& request) {
    if (area.zoom.value_or(1) > 8) return request.Fail(1, "The zoom is too high.");
    scans.push(request);  // Whoever answers may be on any thread.
  });
  responder->Run();
  const auto finish_one = [&scans] {
    const kit::Request<Size> request = scans.front();
    scans.pop();
    if (!request.IsCancelled()) request.Finish({640, 480});
  };

  link.Connect();
  link.caller->Call<Size>("scan", Area{Lens::kBack, 9}, on_size);
  link.caller->Call<Size>("scan", Area{}, on_size);
  link.caller->Call<Size>("scan", Area{}, on_size);
  finish_one();
  scans.pop();  // A request that is dropped is answered with an error.
  link.clock->Advance(0ms);
  return Check("a server that answers later",
               "640x480 The request \"scan\" was dropped without an answer The zoom is too high.",
               link.transcript.Take());
}

}  // namespace

bool RunServerSamples() { return AnswerLater(); }

}  // namespace samples
