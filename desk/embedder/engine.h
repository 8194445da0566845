// All of an embedder's state, which the tables' entries work on.
//
// Threads: the embedder's; the task queue any.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "desk/embedder/actions.h"
#include "desk/embedder/description.h"
#include "desk/embedder/messenger.h"
#include "desk/embedder/registry.h"
#include "desk/embedder/task_queue.h"
#include "desk/embedder/textures.h"
#include "desk/embedder/window.h"

class QEventLoop;

namespace desk {

// What is lent until it is unlocked. Deques: elements stay where they are.
struct Chunk {
  std::deque<std::string> texts;
  std::deque<std::vector<uint8_t>> buffers;
};

struct Engine {
  explicit Engine(Description described);
  ~Engine() { Destroy(); }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  unsigned int NextId() { return ++last_id; }

  // What is not, is a mistake of the plug-in: a line on standard error.
  bool IsOnItsThread() const;

  void Exit(int code);  // The first one counts.
  int Run();
  void Destroy();

  // Answers a window's slot, later.
  void FinishWindow(const WindowResult& result, SharedSlot<FlutterOstrelResultSlot> slot);

  const Description description;
  std::vector<const char*> arguments;  // Of the description, with a null at the end.
  TaskRunner runner;
  Handles handles;
  Actions actions;
  Messenger messenger{*this};
  Window window;
  Textures textures{*this};
  std::map<uint32_t, Chunk> chunks;
  std::vector<void (*)(_FlutterOstrelEngine*)> destroyed_callbacks;
  const std::thread::id thread = std::this_thread::get_id();
  unsigned int last_id = 0;
  bool is_ending = false;
  std::optional<int> exit_code;
  QEventLoop* loop = nullptr;  // While it runs.
};

// Writes the exception that is being handled to standard error.
void ComplainOfException() noexcept;

// Calls the function with the handle's engine; without one, on a wrong thread and when the function
// throws, there is `otherwise`.
template <typename Handle, typename Result, typename Function>
Result With(const Handle* handle, Result otherwise, Function function) {
  try {
    Engine* engine = FindEngine(handle);
    return engine && engine->IsOnItsThread() ? function(*engine) : otherwise;
  } catch (...) {
    ComplainOfException();
    return otherwise;
  }
}

template <typename Handle, typename Function>
void With(const Handle* handle, Function function) {
  With(handle, 0, [&](Engine& engine) {
    function(engine);
    return 0;
  });
}

}  // namespace desk
