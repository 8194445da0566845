#include "desk/embedder/engine.h"

#include <exception>

#include <QEventLoop>

#include "desk/common/diagnostics.h"

namespace desk {

void Report(const char* entry, const char* what) noexcept {
  try {
    ReportError(QStringLiteral("%1: %2").arg(QLatin1String(entry), QString::fromUtf8(what)),
                "embedder");
  } catch (...) {  // There is no memory for the report.
  }
}

bool Engine::IsOnItsThread(const char* entry) const {
  if (std::this_thread::get_id() == thread) return true;
  Report(entry, "the call came on another thread than the embedder's and is ignored");
  return false;
}

void ReportException(const char* entry) noexcept {
  try {
    throw;
  } catch (const std::exception& error) {
    Report(entry, error.what());
  } catch (...) {
    Report(entry, "an exception of unknown type");
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
  return exit_code.value_or(0);  // Empty when the application itself quits.
}

void Engine::Destroy() {
  if (std::exchange(is_ending, true)) return;
  for (size_t i = 0; i < destroyed_callbacks.size(); ++i) destroyed_callbacks[i](handles.engine);
  RemoveEngine(handles.engine);  // Release functions that run from now on find no engine.
  runner.Close();
  messenger.Close();
  window.Close();
  textures.Close();
  chunks.clear();
}

void Engine::FinishWindow(const WindowResult& result, SharedSlot<FlutterOstrelResultSlot> slot) {
  runner.GetQueue()->Post([&result, slot = std::move(slot)] {  // The description lives as long.
    const auto bytes = result.value.Serialize();
    slot->Call(&FlutterOstrelResultSlot::callback, bytes.GetData(), bytes.GetSize(),
               result.text ? result.text->c_str() : nullptr);
  });
}

}  // namespace desk
