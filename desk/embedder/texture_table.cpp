#include "desk/embedder/engine.h"
#include "desk/embedder/tables.h"

namespace desk {
namespace {

using Handle = _FlutterOstrelEngine;

int64_t RegisterTexture(Handle* handle, const FlutterOstrelTextureDescriptor* descriptor) {
  return With(handle, int64_t{-1}, [&](Engine& engine) {
    const int64_t id = descriptor ? engine.textures.Register(*descriptor) : -1;
    engine.actions.Record("RegisterTexture", {{"texture", id}});
    return id;
  });
}

bool UnregisterTexture(Handle* handle, int64_t texture_id, void (*callback)(void* user_data),
                       void* user_data) {
  return With(handle, false, [&](Engine& engine) {
    const bool was_there = engine.textures.Unregister(texture_id, callback, user_data);
    engine.actions.Record("UnregisterTexture", {{"texture", texture_id}, {"answer", was_there}});
    return was_there;
  });
}

bool MarkTextureFrameAvailable(Handle* handle, int64_t texture_id) {
  return With(handle, false,
              [&](Engine& engine) { return engine.textures.MarkFrameAvailable(texture_id); });
}

}  // namespace

const FlutterOstrelTextureProcTable kTextureTable = {
    sizeof(FlutterOstrelTextureProcTable),
    RegisterTexture,
    UnregisterTexture,
    MarkTextureFrameAvailable,
};

}  // namespace desk
