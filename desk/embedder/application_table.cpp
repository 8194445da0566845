#include <algorithm>
#include <cstring>

#include "desk/embedder/engine.h"
#include "desk/embedder/tables.h"
#include "forge/forge_capi.h"

namespace desk {
namespace {

using Application = _FlutterOstrelApplication;

// Copies as much as fits, always with a NUL. Returns the size that the whole text needs.
size_t CopyText(const std::map<uint32_t, std::string>& texts, uint32_t kind, char* buffer,
                size_t buffer_size) {
  const auto found = texts.find(kind);
  if (found == texts.end()) return 0;
  const std::string& text = found->second;
  if (buffer && buffer_size > 0) {
    const size_t fitting = std::min(text.size(), buffer_size - 1);
    std::memcpy(buffer, text.data(), fitting);
    buffer[fitting] = '\0';
  }
  return text.size() + 1;
}

size_t GetApplicationInfo(Application* application, uint32_t kind, char* buffer,
                          size_t buffer_size) {
  return With(application, size_t{0}, [&](Engine& engine) {
    return CopyText(engine.description.information, kind, buffer, buffer_size);
  });
}

size_t GetPath(Application* application, uint32_t kind, char* buffer, size_t buffer_size) {
  return With(application, size_t{0}, [&](Engine& engine) {
    const auto& directories = engine.description.directories;
    if (kind == kLibraries && directories.count(kind) == 0) {
      Report("GetPath", "the directory of the libraries is unknown: no --libs-path was given");
    }
    return CopyText(directories, kind, buffer, buffer_size);
  });
}

void GetDartEntryPointArgs(Application* application, int* count, const char* const** arguments) {
  if (count) *count = 0;
  if (arguments) *arguments = nullptr;
  With(application, [&](Engine& engine) {
    if (count) *count = static_cast<int>(engine.arguments.size() - 1);
    if (arguments) *arguments = engine.arguments.data();
  });
}

template <typename Version, typename Numbers>
uint32_t FillVersion(Version* version, uint32_t size, const Numbers& numbers) {
  if (!version || !FORGE_COVERS(Version, numbers, size)) return 0;
  version->size = sizeof(Version);
  std::copy(numbers.begin(), numbers.end(), version->numbers);
  return 1;
}

// These two entries have no handle.
uint32_t GetOSVersion(FlutterOstrelOSVersion* version, uint32_t size) {
  const Engine* engine = FindLatestEngine();
  return engine ? FillVersion(version, size, engine->description.os_version) : 0;
}

uint32_t GetEmbedderVersion(FlutterOstrelEmbedderVersion* version, uint32_t size) {
  const Engine* engine = FindLatestEngine();
  return engine ? FillVersion(version, size, engine->description.embedder_version) : 0;
}

// This may be another thread than the engine's, so the task looks the engine up again later.
void EnqueueTask(Application* application, const FlutterOstrelSlot* slot, uint32_t value) {
  try {
    auto taken = TakeSlot(slot);
    const auto queue = FindQueue(application);
    if (!queue) return;
    // Moved, so that the embedder's thread releases the slot.
    queue->Post([application, taken = std::move(taken), value] {
      With(application, [&](Engine& engine) {
        engine.actions.Record("EnqueueTask", {{"value", ToValue(size_t{value})}});
      });
      taken->Call(&FlutterOstrelSlot::callback);
    });
  } catch (...) {  // There is no memory, and no way to report that.
  }
}

void Exit(Application* application, int exit_code) {
  With(application, [&](Engine& engine) {
    engine.actions.Record("Exit", {{"exit_code", exit_code}});
    engine.Exit(exit_code);
  });
}

bool HasPermission(Application* application, const char* permission, size_t permission_size) {
  return With(application, false, [&](Engine& engine) {
    const std::string wanted(permission ? permission : "", permission ? permission_size : 0);
    const auto& given = engine.description.permissions;
    const bool answer = std::find(given.begin(), given.end(), wanted) != given.end();
    engine.actions.Record("HasPermission", {{"permission", wanted}, {"answer", answer}});
    return answer;
  });
}

uint32_t CreateMainWindow(Application* application, const FlutterOstrelWindowParameters* parameters,
                          const FlutterOstrelResultSlot* slot) {
  return With(application, FORGE_RESULT_WRONG_STATE,
              [&, taken = TakeSlot(slot)](Engine& engine) -> uint32_t {
                if (!parameters) return FORGE_RESULT_INVALID_ARGUMENT;
                const auto given = forge::CopyCovered(parameters);
                cw::EncodableMap details{{"first_text", ToValue(given.first_text)},
                                         {"second_text", ToValue(given.second_text)}};
                AddDecoded("payload", given.payload, given.payload_size, &details);
                engine.actions.Record("CreateMainWindow", std::move(details));
                engine.FinishWindow(engine.description.main_window_result, taken);
                return FORGE_RESULT_OK;
              });
}

}  // namespace

const FlutterOstrelApplicationProcTable kApplicationTable = {
    sizeof(FlutterOstrelApplicationProcTable),
    GetApplicationInfo,
    GetDartEntryPointArgs,
    GetOSVersion,
    GetEmbedderVersion,
    EnqueueTask,
    Exit,
    GetPath,
    HasPermission,
    CreateMainWindow,
};

}  // namespace desk
