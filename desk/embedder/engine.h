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

// Texts and buffers that are lent until they are unlocked. Elements of deques never move.
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

  // Returns whether this is the embedder's thread. If not, the plug-in has a bug: a line on
  // standard error names the entry.
  bool IsOnItsThread(const char* entry) const;

  void Exit(int code);  // The first one counts.
  int Run();
  void Destroy();

  // Calls a window's slot with the answer, later.
  void FinishWindow(const WindowResult& result, SharedSlot<FlutterOstrelResultSlot> slot);

  const Description description;
  std::vector<const char*> arguments;  // The description's arguments, with a null at the end.
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
  QEventLoop* loop = nullptr;  // Null while no loop runs.
};

// Writes "embedder: ENTRY: WHAT" to standard error.
void Report(const char* entry, const char* what) noexcept;

// The same for the exception that is being handled.
void ReportException(const char* entry) noexcept;

// Calls the function with the handle's engine and returns its result. The result is `otherwise`
// when there is no engine, on a wrong thread, and when the function throws. `entry` is the name of
// the table's entry, by default that of the calling function.
template <typename Handle, typename Result, typename Function>
Result With(const Handle* handle, Result otherwise, Function function,
            const char* entry = __builtin_FUNCTION()) {
  try {
    Engine* engine = FindEngine(handle);
    return engine && engine->IsOnItsThread(entry) ? function(*engine) : otherwise;
  } catch (...) {
    ReportException(entry);
    return otherwise;
  }
}

template <typename Handle, typename Function>
void With(const Handle* handle, Function function, const char* entry = __builtin_FUNCTION()) {
  const auto call = [&](Engine& engine) {
    function(engine);
    return 0;
  };
  With(handle, 0, call, entry);
}

}  // namespace desk
