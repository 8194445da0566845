// The application's view: graphics handles, window state, orientation, keyboard, status bar, theme,
// payload, popup windows.
//
//   const unsigned id = view->ThemeChangedSubscribe([view] { Apply(view->GetTheme()); });
//   view->ThemeChangedUnsubscribe(id);
//
// An operation that the embedder does not offer does nothing and returns the neutral result: null,
// 0, false, the default theme. A number of the embedder that is not in its documented range becomes
// 0. The embedder defines the meaning of numbers that have no name here.
//
// A subscription's callback is called whenever the value has changed, from Subscribe to Unsubscribe
// or to the end of the engine. A callback may end its own subscription. An empty callback is
// accepted and does nothing. Subscribe returns an id, or 0 on failure; the embedder ignores an
// unknown id in Unsubscribe.
//
// Threads:   the embedder's thread, where callbacks run too.
// Ownership: the embedder keeps the callbacks, even longer than this object. The object keeps the
//            view's handle, which is valid as long as the engine; the context is needed during
//            Create only.
// Errors:    these operations log when the embedder does not offer them: GetWindowMode, GetTheme,
//            GetWindowPayload, CreatePopupWindow, CloseWindow, and the subscriptions to the
//            window's visibility and to the theme. An exception of a callback is an error line;
//            nothing else throws except std::bad_alloc. A payload or a result that holds a custom
//            value ends the process.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "cw/encodable_value.h"
#include "forge/export.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace cw {

class FORGE_EXPORT ViewWrapper {
 public:
  // The embedder's numbers; kNone is also the neutral result.
  enum class WindowVisibility : uint32_t { kNone = 0 };     // 1 to 5.
  enum class WindowType : uint32_t { kNone = 0 };           // 1 to 3.
  enum class StatusbarVisibility : uint32_t { kNone = 0 };  // 1 and 2.

  // The appearance that the embedder asks for. The initial values stand for what an embedder does
  // not know.
  struct Theme {
    bool flag = true;
    std::array<uint32_t, 4> values{};
    std::array<std::string, 4> texts;
  };

  // Returns null when the context is null, when it has no view, or when the table cannot be loaded.
  static std::unique_ptr<ViewWrapper> Create(FlutterOstrelPluginContext* context);

  ViewWrapper(const ViewWrapper&) = delete;
  ViewWrapper& operator=(const ViewWrapper&) = delete;

  // The embedder's handle of the view, never null.
  _FlutterOstrelView* GetRef() const { return view_; }

  // Graphics. Each operation stores the embedder's handle in `*out`, or null. A null `out` is
  // ignored. The embedder owns the handles.
  void GetEGLConfig(void** out) const;
  void GetEGLDisplay(void** out) const;
  void GetNativeDisplay(void** out) const;
  void GetEGLGetProcAddress(void** out) const;
  void GetEGLContextHandle(void** out) const;
  void GetEGLOffscreenContextHandle(void** out) const;
  float GetDevicePixelRatio() const;  // Device pixels per logical pixel; 1 when not offered.

  // The window. MaximizeWindow, MinimizeWindow, Fullscreen and Activate ask for a state;
  // subscribers are called when it has changed.
  WindowVisibility GetWindowVisibility() const;
  bool GetWindowMode() const;  // Returns whether the visibility is 3.
  unsigned int WindowVisibilityChangedSubscribe(std::function<void()> callback);
  void WindowVisibilityChangedUnsubscribe(unsigned int id);
  void MaximizeWindow();
  void MinimizeWindow();
  void Fullscreen();
  void Activate();
  uint32_t GetWindowOrientation();  // In degrees: 0, 90, 180 or 270.
  unsigned int WindowOrientationChangedSubscribe(std::function<void()> callback);
  void WindowOrientationChangedUnsubscribe(unsigned int id);
  uint32_t GetWindowWidth() const;  // In pixels.
  uint32_t GetWindowHeight() const;
  WindowType GetWindowType() const;
  bool IsBackgroundVisible() const;
  void SetBackgroundVisible(bool visible);

  // The device.
  uint32_t GetDeviceOrientation() const;  // In degrees: 0, 90, 180 or 270.
  unsigned int DeviceOrientationChangedSubscribe(std::function<void()> callback);
  void DeviceOrientationChangedUnsubscribe(unsigned int id);
  bool IsKeyboardVisible() const;
  unsigned int KeyboardVisibilityChangedSubscribe(std::function<void()> callback);
  void KeyboardVisibilityChangedUnsubscribe(unsigned int id);

  // Asks for a visibility of the status bar: kNone, 1 or 2. False when the embedder refuses, and
  // for any other number, which is not passed on.
  bool SetStatusbarVisibility(StatusbarVisibility visibility);

  // The visibility that was asked for, and whether the status bar is shown now.
  StatusbarVisibility GetStatusbarVisibility() const;
  bool IsStatusbarVisible() const;

  // Returns a copy of the theme, as far as the embedder knows it; the default theme on failure.
  Theme GetTheme() const;
  unsigned int ThemeChangedSubscribe(std::function<void()> callback);
  void ThemeChangedUnsubscribe(unsigned int id);

  // Returns the payload that the window was opened with. The null value when there is none, on
  // failure, and (with an error line) when the payload cannot be decoded.
  EncodableValue GetWindowPayload() const;

  // Opens a popup window at a Dart entry point. The embedder receives the text and the payload
  // (null: none). The callback (empty: none) is called at most once, with the window's answer. An
  // answer that cannot be decoded is the null value and an error line.
  //
  // For an empty entry point no window is opened, and the callback is called within this operation,
  // with the null value and "Expected not empty entry point". Its exception leaves the operation.
  void CreatePopupWindow(const std::string& entry_point, const std::string& text,
                         const EncodableValue* payload,
                         const std::function<void(const EncodableValue&, std::string)>& callback);

  // Closes this window. The embedder passes the result on to the opener of the window.
  void CloseWindow(const EncodableValue& result);

 private:
  using Table = FlutterOstrelViewProcTable;
  using HandleEntry = void (*Table::*)(_FlutterOstrelView*, void**);
  using SubscribeEntry = unsigned int (*Table::*)(_FlutterOstrelView*, const FlutterOstrelSlot*);

  ViewWrapper(_FlutterOstrelView* view, const Table& table) : view_(view), table_(table) {}

  void GetHandle(HandleEntry entry, void** out) const;
  unsigned int Subscribe(SubscribeEntry entry, std::function<void()> callback) const;

  _FlutterOstrelView* const view_;
  const Table table_;
};

}  // namespace cw
