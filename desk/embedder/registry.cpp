#include "desk/embedder/registry.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

namespace desk {
namespace {

// The remainder of a handle's number divided by kKinds.
enum Kind : uintptr_t { kApplication, kEngine, kView, kKinds };

struct Living {
  Engine* engine;
  std::shared_ptr<TaskQueue> queue;
};

struct Registry {
  std::mutex mutex;
  std::map<uintptr_t, Living> living;  // By serial number.
  uintptr_t last = 0;
};

Registry& GetRegistry() {
  // Never destroyed, because threads may use handles until the end.
  static auto* registry = new Registry;
  return *registry;
}

template <typename Handle>
Handle* MakeHandle(uintptr_t serial, Kind kind) {
  return reinterpret_cast<Handle*>(serial * kKinds + kind);
}

Living Find(const void* handle, Kind kind) {
  const auto number = reinterpret_cast<uintptr_t>(handle);
  if (number % kKinds != kind) return {};
  Registry& registry = GetRegistry();
  const std::lock_guard lock(registry.mutex);
  const auto found = registry.living.find(number / kKinds);
  return found == registry.living.end() ? Living{} : found->second;
}

}  // namespace

Handles AddEngine(Engine* engine, std::shared_ptr<TaskQueue> queue) {
  Registry& registry = GetRegistry();
  const std::lock_guard lock(registry.mutex);
  const uintptr_t serial = ++registry.last;
  registry.living.emplace(serial, Living{engine, std::move(queue)});
  return {MakeHandle<_FlutterOstrelApplication>(serial, kApplication),
          MakeHandle<_FlutterOstrelEngine>(serial, kEngine),
          MakeHandle<_FlutterOstrelView>(serial, kView)};
}

void RemoveEngine(const _FlutterOstrelEngine* handle) {
  Registry& registry = GetRegistry();
  const std::lock_guard lock(registry.mutex);
  registry.living.erase(reinterpret_cast<uintptr_t>(handle) / kKinds);
}

Engine* FindEngine(const _FlutterOstrelApplication* handle) {
  return Find(handle, kApplication).engine;
}

Engine* FindEngine(const _FlutterOstrelEngine* handle) { return Find(handle, kEngine).engine; }

Engine* FindEngine(const _FlutterOstrelView* handle) { return Find(handle, kView).engine; }

std::shared_ptr<TaskQueue> FindQueue(const _FlutterOstrelApplication* handle) {
  return Find(handle, kApplication).queue;
}

Engine* FindLatestEngine() {
  Registry& registry = GetRegistry();
  const std::lock_guard lock(registry.mutex);
  return registry.living.empty() ? nullptr : registry.living.rbegin()->second.engine;
}

}  // namespace desk
