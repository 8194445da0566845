#include "desk/embedder/engine.h"
#include "desk/embedder/tables.h"
#include "forge/forge_capi.h"

namespace desk {
namespace {

using Handle = _FlutterOstrelView;

// There is no graphics stack.
void GetNoGraphics(Handle*, void** result) {
  if (result) *result = nullptr;
}

// ---- State ----

template <auto kMember>
auto Get(Handle* handle) {
  using Value = std::decay_t<decltype(std::declval<View>().*kMember)>;
  const auto get = [](Engine& engine) { return engine.window.GetView().*kMember; };
  return With(handle, Value{}, get, __PRETTY_FUNCTION__);
}

// Records the action and changes the window.
template <typename Change>
void Do(Engine& engine, const char* action, cw::EncodableMap details, Change change) {
  engine.actions.Record(action, std::move(details));
  engine.window.Change(change);
}

template <uint32_t kVisibility>
void SetVisibility(Handle* handle, const char* action) {
  With(handle, [&](Engine& engine) {
    Do(engine, action, {}, [](View& view) { view.visibility = kVisibility; });
  });
}

float GetDevicePixelRatio(Handle* handle) {
  return static_cast<float>(Get<&View::pixel_ratio>(handle));
}

void MaximizeWindow(Handle* handle) {
  SetVisibility<kVisibilityMaximized>(handle, "MaximizeWindow");
}
void MinimizeWindow(Handle* handle) {
  SetVisibility<kVisibilityMinimized>(handle, "MinimizeWindow");
}
void Fullscreen(Handle* handle) { SetVisibility<kVisibilityFullscreen>(handle, "Fullscreen"); }

// Restores a window that is minimized or hidden.
void Activate(Handle* handle) {
  With(handle, [](Engine& engine) {
    Do(engine, "Activate", {}, [](View& view) {
      if (view.visibility >= kVisibilityMinimized) view.visibility = kVisibilityNormal;
    });
  });
}

bool SetStatusbarVisibility(Handle* handle, uint32_t visibility) {
  return With(handle, false, [&](Engine& engine) {
    const bool is_known = visibility <= 2;
    Do(engine, "SetStatusbarVisibility",
       {{"visibility", ToValue(size_t{visibility})}, {"answer", is_known}}, [&](View& view) {
         if (is_known) view.statusbar = visibility;
       });
    return is_known;
  });
}

void SetBackgroundVisible(Handle* handle, bool visible) {
  With(handle, [&](Engine& engine) {
    Do(engine, "SetBackgroundVisible", {{"visible", visible}},
       [&](View& view) { view.background_visible = visible; });
  });
}

// ---- Subscriptions ----

template <auto kSubscribers>
unsigned int Subscribe(Handle* handle, const FlutterOstrelSlot* slot) {
  const auto subscribe = [taken = TakeSlot(slot)](Engine& engine) {
    return (engine.window.*kSubscribers).Add(engine.NextId(), taken);
  };
  return With(handle, 0U, subscribe, __PRETTY_FUNCTION__);
}

template <auto kSubscribers>
void Unsubscribe(Handle* handle, unsigned int id) {
  const auto unsubscribe = [&](Engine& engine) { (engine.window.*kSubscribers).Remove(id); };
  With(handle, unsubscribe, __PRETTY_FUNCTION__);
}

// ---- What is lent ----

uint32_t LockResources(Handle* handle) {
  return With(handle, uint32_t{0}, [](Engine& engine) {
    const uint32_t id = engine.NextId();
    engine.chunks[id];
    return id;
  });
}

void UnlockResources(Handle* handle, uint32_t chunk_id) {
  With(handle, [&](Engine& engine) { engine.chunks.erase(chunk_id); });
}

// Calls the function with the open chunk; its result is the entry's.
template <typename Function>
uint32_t WithChunk(Handle* handle, uint32_t chunk_id, Function function) {
  return With(handle, FORGE_RESULT_WRONG_STATE, [&](Engine& engine) {
    const auto found = engine.chunks.find(chunk_id);
    return found == engine.chunks.end() ? FORGE_RESULT_WRONG_STATE
                                        : function(engine, found->second);
  });
}

void FillTheme(const Theme& source, Chunk& chunk, FlutterOstrelTheme* theme, uint32_t size) {
  theme->size = std::min<uint32_t>(size, sizeof *theme);
  if (FORGE_COVERS(FlutterOstrelTheme, flag, size)) theme->flag = source.flag ? 1 : 0;
  if (FORGE_COVERS(FlutterOstrelTheme, values, size)) {
    std::copy(source.values.begin(), source.values.end(), theme->values);
  }
  if (!FORGE_COVERS(FlutterOstrelTheme, texts, size)) return;
  for (size_t i = 0; i < source.texts.size(); ++i) {
    theme->texts[i] = chunk.texts.emplace_back(source.texts[i]).c_str();
  }
}

uint32_t GetTheme(Handle* handle, uint32_t chunk_id, FlutterOstrelTheme* theme, uint32_t size) {
  return WithChunk(handle, chunk_id, [&](Engine& engine, Chunk& chunk) {
    if (!theme || size < sizeof theme->size) return FORGE_RESULT_INVALID_ARGUMENT;
    FillTheme(engine.window.GetView().theme, chunk, theme, size);
    return FORGE_RESULT_OK;
  });
}

uint32_t GetWindowPayload(Handle* handle, uint32_t chunk_id, ForgeBufferView* payload,
                          uint32_t size) {
  return WithChunk(handle, chunk_id, [&](Engine& engine, Chunk& chunk) {
    if (!payload || size < sizeof payload->struct_size) return FORGE_RESULT_INVALID_ARGUMENT;
    const auto bytes = engine.description.payload.Serialize();
    const auto& lent =
        chunk.buffers.emplace_back(bytes.GetData(), bytes.GetData() + bytes.GetSize());
    payload->struct_size = std::min<uint32_t>(size, sizeof *payload);
    if (FORGE_COVERS(ForgeBufferView, data, size)) payload->data = lent.data();
    if (FORGE_COVERS(ForgeBufferView, size, size)) payload->size = lent.size();
    return FORGE_RESULT_OK;
  });
}

// ---- Windows ----

void CreatePopupWindow(Handle* handle, const char* entry_point, const char* text,
                       const uint8_t* payload, size_t payload_size,
                       const FlutterOstrelResultSlot* slot) {
  With(handle, [&, taken = TakeSlot(slot)](Engine& engine) {
    cw::EncodableMap details{{"entry_point", ToValue(entry_point)}, {"text", ToValue(text)}};
    AddDecoded("payload", payload, payload_size, &details);
    engine.actions.Record("CreatePopupWindow", std::move(details));
    engine.FinishWindow(engine.description.popup_window_result, taken);
  });
}

void CloseWindow(Handle* handle, const uint8_t* result, size_t result_size) {
  With(handle, [&](Engine& engine) {
    cw::EncodableMap details;
    AddDecoded("result", result, result_size, &details);
    engine.actions.Record("CloseWindow", std::move(details));
  });
}

}  // namespace

const FlutterOstrelViewProcTable kViewTable = {
    sizeof(FlutterOstrelViewProcTable),
    GetNoGraphics,
    GetNoGraphics,
    GetNoGraphics,
    GetNoGraphics,
    GetNoGraphics,
    GetNoGraphics,
    GetDevicePixelRatio,
    Get<&View::visibility>,
    Subscribe<&Window::visibility_subscribers>,
    Unsubscribe<&Window::visibility_subscribers>,
    MaximizeWindow,
    MinimizeWindow,
    Get<&View::orientation>,
    Subscribe<&Window::orientation_subscribers>,
    Unsubscribe<&Window::orientation_subscribers>,
    Get<&View::width>,
    Get<&View::height>,
    Get<&View::device_orientation>,
    Subscribe<&Window::device_orientation_subscribers>,
    Unsubscribe<&Window::device_orientation_subscribers>,
    Get<&View::keyboard>,
    Subscribe<&Window::keyboard_subscribers>,
    Unsubscribe<&Window::keyboard_subscribers>,
    SetStatusbarVisibility,
    Get<&View::statusbar>,
    Get<&View::statusbar_visible>,
    Fullscreen,
    Activate,
    Get<&View::background_visible>,
    SetBackgroundVisible,
    Get<&View::type>,
    LockResources,
    UnlockResources,
    GetTheme,
    Subscribe<&Window::theme_subscribers>,
    Unsubscribe<&Window::theme_subscribers>,
    GetWindowPayload,
    CreatePopupWindow,
    CloseWindow,
};

}  // namespace desk
