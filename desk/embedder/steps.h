// The actions of the Dart side and of the user, one step after the other. Each prints a line.
//
// Threads: the embedder's, from its event loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <QObject>

#include "cw/encodable_value.h"
#include "desk/embedder/description.h"
#include "desk/embedder/embedder.h"

namespace desk {

class StepRunner final : public QObject {
 public:
  // Both outlive the runner.
  StepRunner(Embedder& embedder, std::vector<Step> steps, std::ostream& output);

  void Start() { Continue(); }

  // Receives the plug-in's actions. The messages that it has sent are those that steps expect.
  void OnAction(const cw::EncodableValue& action);

  // The exit code when the message that a step expects has not come.
  static constexpr int kStepFailed = 4;

 private:
  void Continue();  // Takes the next step, from the event loop.
  void Do(const Step& step);
  void SendMessage(const Step& step);
  void OnAnswer(size_t number, const uint8_t* data, size_t size);
  void Expect(const Step& step);
  bool TakeExpected(const Step& step);
  void SetTimeout(uint32_t milliseconds, std::function<void()> on_timeout);
  void Tell(const std::string& line);

  Embedder& embedder_;
  const std::vector<Step> steps_;
  std::ostream& output_;
  size_t next_ = 0;
  size_t waiting_for_ = 0;             // The number (from 1) of the step that waits; 0: none.
  std::deque<cw::EncodableMap> sent_;  // The plug-in's messages that no step has expected so far.
};

}  // namespace desk
