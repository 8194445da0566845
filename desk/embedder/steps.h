// What the Dart side and the user do to the plug-in, one step after the other. Each prints a line.
//
// Threads: the embedder's, from its event loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

#include <QObject>

#include "desk/embedder/description.h"
#include "desk/embedder/embedder.h"

namespace desk {

class StepRunner final : public QObject {
 public:
  // Both outlive the runner.
  StepRunner(Embedder& embedder, std::vector<Step> steps, std::ostream& output);

  void Start() { Continue(); }

 private:
  void Continue();  // With the next step, from the event loop.
  void Do(const Step& step);
  void SendMessage(const Step& step);
  void OnAnswer(const Step& step, const uint8_t* data, size_t size);
  void Tell(const std::string& line);

  Embedder& embedder_;
  const std::vector<Step> steps_;
  std::ostream& output_;
  size_t next_ = 0;
};

}  // namespace desk
