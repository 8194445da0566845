#include "desk/embedder/engine.h"

#include <exception>
#include <iostream>

#include <QEventLoop>

namespace desk {

bool Engine::IsOnItsThread() const {
  if (std::this_thread::get_id() == thread) return true;
  std::cerr << "embedder: a table was used on another thread than the embedder's: ignored"
            << std::endl;
  return false;
}

void ComplainOfException() noexcept {
  try {
    throw;
  } catch (const std::exception& error) {
    std::cerr << "embedder: an exception at the border: " << error.what() << std::endl;
  } catch (...) {
    std::cerr << "embedder: an exception at the border" << std::endl;
  }
}

Engine::Engine(Description described)
    : description(std::move(described)), window(description.view) {
  for (const std::string& argument : description.arguments) arguments.push_back(argument.c_str());
  arguments.push_back(nullptr);
  handles = AddEngine(this, runner.GetQueue());
}

void Engine::Exit(int code) {
  if (!exit_code) exit_code = code;
  if (loop) loop->exit(*exit_code);
}

int Engine::Run() {
  if (exit_code) return *exit_code;
  QEventLoop event_loop;
  QEventLoop* const outer = std::exchange(loop, &event_loop);
  event_loop.exec();
  loop = outer;
  return exit_code.value_or(0);  // None: the application itself quits.
}

void Engine::Destroy() {
  if (std::exchange(is_ending, true)) return;
  for (size_t i = 0; i < destroyed_callbacks.size(); ++i) destroyed_callbacks[i](handles.engine);
  RemoveEngine(handles.engine);  // From here on whoever is released finds nothing to call.
  runner.Close();
  messenger.Close();
  window.Close();
  textures.Close();
  chunks.clear();
}

void Engine::FinishWindow(const WindowResult& result, SharedSlot<FlutterOstrelResultSlot> slot) {
  runner.GetQueue()->Post([&result, slot = std::move(slot)] {  // The description stays.
    const auto bytes = result.value.Serialize();
    slot->Call(&FlutterOstrelResultSlot::callback, bytes.GetData(), bytes.GetSize(),
               result.text ? result.text->c_str() : nullptr);
  });
}

}  // namespace desk
