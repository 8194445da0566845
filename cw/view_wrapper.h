// The application's view: graphics handles, window state, orientation, keyboard, status bar, theme,
// payload, popup windows.
//
// What the embedder does not offer does nothing and gives the neutral result: null, 0, false, the
// default theme. Numbers that are no member of their set become 0. What the numbers mean is the
// embedder's matter, where no name is given here.
//
// A subscription's callback is called whenever the value has changed, until Unsubscribe, at most as
// long as the engine lives; it may unsubscribe itself. Subscribe returns an id, 0 on failure.
//
// Threads: the embedder's, where callbacks run, too.
// Errors:  the newer operations log what the embedder does not offer. What a callback throws is an
//          error line; nothing else throws.
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
  enum class WindowVisibility : uint32_t { kNone = 0 };     // 1 to 5.
  enum class WindowType : uint32_t { kNone = 0 };           // 1 to 3.
  enum class StatusbarVisibility : uint32_t { kNone = 0 };  // 1 and 2.

  struct Theme {
    bool flag = true;
    std::array<uint32_t, 4> values{};
    std::array<std::string, 4> texts;
  };

  // Null when the context has no view, or its table cannot be loaded.
  static std::unique_ptr<ViewWrapper> Create(FlutterOstrelPluginContext* context);

  ViewWrapper(const ViewWrapper&) = delete;
  ViewWrapper& operator=(const ViewWrapper&) = delete;

  _FlutterOstrelView* GetRef() const { return view_; }

  // Graphics. A null `out` is ignored.
  void GetEGLConfig(void** out) const;
  void GetEGLDisplay(void** out) const;
  void GetNativeDisplay(void** out) const;
  void GetEGLGetProcAddress(void** out) const;
  void GetEGLContextHandle(void** out) const;
  void GetEGLOffscreenContextHandle(void** out) const;
  float GetDevicePixelRatio() const;  // 1 when not offered.

  // The window.
  WindowVisibility GetWindowVisibility() const;
  bool GetWindowMode() const;  // Is the visibility 3?
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
  bool SetStatusbarVisibility(StatusbarVisibility visibility);  // False, too, for another number.
  StatusbarVisibility GetStatusbarVisibility() const;
  bool IsStatusbarVisible() const;

  // The theme, as far as the embedder knows it.
  Theme GetTheme() const;
  unsigned int ThemeChangedSubscribe(std::function<void()> callback);
  void ThemeChangedUnsubscribe(unsigned int id);

  // What the window was opened with. An undecodable payload is the null value.
  EncodableValue GetWindowPayload() const;

  // Opens a popup window at a Dart entry point, for which the embedder is given a text and a
  // payload (null: none). The callback (empty: none) is called at most once, with what the window
  // answers, or at once with the null value and "Expected not empty entry point".
  void CreatePopupWindow(const std::string& entry_point, const std::string& text,
                         const EncodableValue* payload,
                         const std::function<void(const EncodableValue&, std::string)>& callback);

  // Closes this window; the result goes to whoever opened it.
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
