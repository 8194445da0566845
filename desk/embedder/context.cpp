#include "desk/embedder/context.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <optional>

#include "desk/embedder/engine.h"
#include "desk/embedder/tables.h"
#include "forge/proc_table.h"

namespace desk {
namespace {

template <typename T, typename Handle>
uint32_t Load(T* table, uint32_t size, const Handle* handle, const T& whole,
              std::optional<uint32_t> DeclaredSizes::*declared) {
  return With(handle, uint32_t{0}, [&](const Engine& engine) -> uint32_t {
    const uint32_t known =
        std::min<uint32_t>(size, (engine.description.declared_sizes.*declared).value_or(sizeof(T)));
    if (!table || known < sizeof table->size) return 0;
    forge::FillCovered(table, known, whole);
    return 1;
  });
}

uint32_t LoadApplication(FlutterOstrelApplicationProcTable* table, uint32_t size,
                         _FlutterOstrelApplication* application) {
  return Load(table, size, application, kApplicationTable, &DeclaredSizes::application);
}

uint32_t LoadView(FlutterOstrelViewProcTable* table, uint32_t size, _FlutterOstrelView* view) {
  return Load(table, size, view, kViewTable, &DeclaredSizes::view);
}

uint32_t LoadTexture(FlutterOstrelTextureProcTable* table, uint32_t size,
                     _FlutterOstrelEngine* engine) {
  return Load(table, size, engine, kTextureTable, &DeclaredSizes::texture);
}

uint32_t LoadMessenger(FlutterOstrelMessengerProcTable* table, uint32_t size,
                       _FlutterOstrelEngine* engine) {
  return Load(table, size, engine, kMessengerTable, &DeclaredSizes::messenger);
}

void EngineDestroyedSubscribe(_FlutterOstrelEngine* handle,
                              void (*callback)(_FlutterOstrelEngine* engine)) {
  With(handle, [&](Engine& engine) {
    if (callback) engine.destroyed_callbacks.push_back(callback);
  });
}

}  // namespace

Context::Context(const Engine& engine) {
  using Whole = FlutterOstrelPluginContext;
  const uint32_t size = engine.description.declared_sizes.context.value_or(sizeof(Whole));
  memory_.reset(static_cast<Whole*>(std::calloc(1, std::max<size_t>(size, sizeof(size)))));
  if (!memory_) throw std::bad_alloc();
  const Handles& handles = engine.handles;
  const Whole whole = {size,
                       handles.application,
                       handles.engine,
                       handles.view,
                       EngineDestroyedSubscribe,
                       LoadApplication,
                       LoadView,
                       LoadTexture,
                       LoadMessenger};
  forge::FillCovered(memory_.get(), size, whole);
}

void Context::Free::operator()(FlutterOstrelPluginContext* memory) const { std::free(memory); }

}  // namespace desk
