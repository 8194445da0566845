#include "desk/embedder/engine.h"
#include "desk/embedder/tables.h"
#include "forge/forge_capi.h"

namespace desk {
namespace {

using Handle = _FlutterOstrelView;
using Subscribers = Window::Subscribers;

// There is no graphics stack.
void GetNoGraphics(Handle*, void** result) {
  if (result) *result = nullptr;
}

// ---- State ----

// The functions below take the entry's name from their callers.

template <typename Value>
Value Get(Handle* handle, Value View::*member, const char* entry = __builtin_FUNCTION()) {
  const auto get = [&](Engine& engine) { return engine.window.GetView().*member; };
  return With(handle, Value{}, get, entry);
}

uint32_t GetWindowVisibility(Handle* handle) { return Get(handle, &View::visibility); }
uint32_t GetWindowOrientation(Handle* handle) { return Get(handle, &View::orientation); }
uint32_t GetWindowWidth(Handle* handle) { return Get(handle, &View::width); }
uint32_t GetWindowHeight(Handle* handle) { return Get(handle, &View::height); }
uint32_t GetDeviceOrientation(Handle* handle) { return Get(handle, &View::device_orientation); }
bool IsKeyboardVisible(Handle* handle) { return Get(handle, &View::keyboard); }
uint32_t GetStatusbarVisibility(Handle* handle) { return Get(handle, &View::statusbar); }
bool IsStatusbarVisible(Handle* handle) { return Get(handle, &View::statusbar_visible); }
bool IsBackgroundVisible(Handle* handle) { return Get(handle, &View::background_visible); }
uint32_t GetWindowType(Handle* handle) { return Get(handle, &View::type); }

float GetDevicePixelRatio(Handle* handle) {
  return static_cast<float>(Get(handle, &View::pixel_ratio));
}

// Records the action and changes the window.
template <typename Change>
void Do(Engine& engine, const char* action, cw::EncodableMap details, Change change) {
  engine.actions.Record(action, std::move(details));
  engine.window.Change(change);
}

// The action's name is that of the entry.
void SetVisibility(Handle* handle, uint32_t visibility, const char* entry = __builtin_FUNCTION()) {
  const auto set = [&](Engine& engine) {
    Do(engine, entry, {}, [&](View& view) { view.visibility = visibility; });
  };
  With(handle, set, entry);
}

void MaximizeWindow(Handle* handle) { SetVisibility(handle, kVisibilityMaximized); }
void MinimizeWindow(Handle* handle) { SetVisibility(handle, kVisibilityMinimized); }
void Fullscreen(Handle* handle) { SetVisibility(handle, kVisibilityFullscreen); }

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

unsigned int Subscribe(Handle* handle, Subscribers Window::*subscribers,
                       const FlutterOstrelSlot* slot, const char* entry = __builtin_FUNCTION()) {
  const auto subscribe = [&, taken = TakeSlot(slot)](Engine& engine) {
    return (engine.window.*subscribers).Add(engine.NextId(), taken);
  };
  return With(handle, 0U, subscribe, entry);
}

void Unsubscribe(Handle* handle, Subscribers Window::*subscribers, unsigned int id,
                 const char* entry = __builtin_FUNCTION()) {
  const auto unsubscribe = [&](Engine& engine) { (engine.window.*subscribers).Remove(id); };
  With(handle, unsubscribe, entry);
}

unsigned int WindowVisibilityChangedSubscribe(Handle* handle, const FlutterOstrelSlot* slot) {
  return Subscribe(handle, &Window::visibility_subscribers, slot);
}
void WindowVisibilityChangedUnsubscribe(Handle* handle, unsigned int id) {
  Unsubscribe(handle, &Window::visibility_subscribers, id);
}

unsigned int WindowOrientationChangedSubscribe(Handle* handle, const FlutterOstrelSlot* slot) {
  return Subscribe(handle, &Window::orientation_subscribers, slot);
}
void WindowOrientationChangedUnsubscribe(Handle* handle, unsigned int id) {
  Unsubscribe(handle, &Window::orientation_subscribers, id);
}

unsigned int DeviceOrientationChangedSubscribe(Handle* handle, const FlutterOstrelSlot* slot) {
  return Subscribe(handle, &Window::device_orientation_subscribers, slot);
}
void DeviceOrientationChangedUnsubscribe(Handle* handle, unsigned int id) {
  Unsubscribe(handle, &Window::device_orientation_subscribers, id);
}

unsigned int KeyboardVisibilityChangedSubscribe(Handle* handle, const FlutterOstrelSlot* slot) {
  return Subscribe(handle, &Window::keyboard_subscribers, slot);
}
void KeyboardVisibilityChangedUnsubscribe(Handle* handle, unsigned int id) {
  Unsubscribe(handle, &Window::keyboard_subscribers, id);
}

unsigned int ThemeChangedSubscribe(Handle* handle, const FlutterOstrelSlot* slot) {
  return Subscribe(handle, &Window::theme_subscribers, slot);
}
void ThemeChangedUnsubscribe(Handle* handle, unsigned int id) {
  Unsubscribe(handle, &Window::theme_subscribers, id);
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
uint32_t WithChunk(Handle* handle, uint32_t chunk_id, Function function,
                   const char* entry = __builtin_FUNCTION()) {
  const auto call = [&](Engine& engine) {
    const auto found = engine.chunks.find(chunk_id);
    return found == engine.chunks.end() ? FORGE_RESULT_WRONG_STATE
                                        : function(engine, found->second);
  };
  return With(handle, FORGE_RESULT_WRONG_STATE, call, entry);
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
    GetWindowVisibility,
    WindowVisibilityChangedSubscribe,
    WindowVisibilityChangedUnsubscribe,
    MaximizeWindow,
    MinimizeWindow,
    GetWindowOrientation,
    WindowOrientationChangedSubscribe,
    WindowOrientationChangedUnsubscribe,
    GetWindowWidth,
    GetWindowHeight,
    GetDeviceOrientation,
    DeviceOrientationChangedSubscribe,
    DeviceOrientationChangedUnsubscribe,
    IsKeyboardVisible,
    KeyboardVisibilityChangedSubscribe,
    KeyboardVisibilityChangedUnsubscribe,
    SetStatusbarVisibility,
    GetStatusbarVisibility,
    IsStatusbarVisible,
    Fullscreen,
    Activate,
    IsBackgroundVisible,
    SetBackgroundVisible,
    GetWindowType,
    LockResources,
    UnlockResources,
    GetTheme,
    ThemeChangedSubscribe,
    ThemeChangedUnsubscribe,
    GetWindowPayload,
    CreatePopupWindow,
    CloseWindow,
};

}  // namespace desk
