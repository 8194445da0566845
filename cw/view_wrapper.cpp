#include "cw/view_wrapper.h"

#include <cstddef>
#include <utility>

#include "cw/embedder_slot.h"
#include "cw/embedder_table.h"
#include "forge/logger.h"

namespace cw {
namespace {

using details::CallIfSet;
using details::NumberSet;

constexpr NumberSet kWindowVisibilities{1, 5, 1, 0};
constexpr NumberSet kOrientations{90, 270, 90, 0};
constexpr NumberSet kStatusbarVisibilities{1, 2, 1, 0};
constexpr NumberSet kWindowTypes{1, 3, 1, 0};

constexpr uint32_t kWindowModeVisibility = 3;

// A chunk of the view's resources, which is locked as long as the object lives.
class ResourcesLock {
 public:
  ResourcesLock(const FlutterOstrelViewProcTable& table, _FlutterOstrelView* view)
      : table_(table), view_(view), chunk_id_(table.LockResources(view)) {}
  ~ResourcesLock() { table_.UnlockResources(view_, chunk_id_); }
  ResourcesLock(const ResourcesLock&) = delete;
  ResourcesLock& operator=(const ResourcesLock&) = delete;

  uint32_t GetChunkId() const { return chunk_id_; }

 private:
  const FlutterOstrelViewProcTable& table_;
  _FlutterOstrelView* const view_;
  const uint32_t chunk_id_;
};

// The values were added in pairs: a pair that is not covered completely does not count.
ViewWrapper::Theme ThemeOf(const FlutterOstrelTheme& source) {
  constexpr std::size_t kPair = 2;
  ViewWrapper::Theme theme;
  if (forge::Reaches(source, source.flag)) theme.flag = source.flag != 0;
  for (std::size_t i = 0; i < theme.values.size(); ++i) {
    if (forge::Reaches(source, source.values[i / kPair * kPair + kPair - 1]))
      theme.values[i] = source.values[i];
  }
  for (std::size_t i = 0; i < theme.texts.size(); ++i) {
    if (forge::Reaches(source, source.texts[i]) && source.texts[i])
      theme.texts[i] = source.texts[i];
  }
  return theme;
}

}  // namespace

std::unique_ptr<ViewWrapper> ViewWrapper::Create(FlutterOstrelPluginContext* context) {
  Table table;
  if (!details::LoadTable(context, &FlutterOstrelPluginContext::view,
                          &FlutterOstrelPluginContext::ViewProcTableLoad, &table)) {
    return nullptr;
  }
  return std::unique_ptr<ViewWrapper>(new ViewWrapper(context->view, table));
}

// ---- Entries that need only be set ----------------------------------------------------------

void ViewWrapper::GetEGLConfig(void** out) const { GetHandle(&Table::GetEGLConfig, out); }

void ViewWrapper::GetEGLDisplay(void** out) const { GetHandle(&Table::GetEGLDisplay, out); }

void ViewWrapper::GetNativeDisplay(void** out) const { GetHandle(&Table::GetNativeDisplay, out); }

void ViewWrapper::GetEGLGetProcAddress(void** out) const {
  GetHandle(&Table::GetEGLGetProcAddress, out);
}

void ViewWrapper::GetEGLContextHandle(void** out) const {
  GetHandle(&Table::GetEGLContextHandle, out);
}

void ViewWrapper::GetEGLOffscreenContextHandle(void** out) const {
  GetHandle(&Table::GetEGLOffscreenContextHandle, out);
}

float ViewWrapper::GetDevicePixelRatio() const {
  return CallIfSet(table_, &Table::GetDevicePixelRatio, 1.0f, view_);
}

ViewWrapper::WindowVisibility ViewWrapper::GetWindowVisibility() const {
  const uint32_t visibility = CallIfSet(table_, &Table::GetWindowVisibility, 0u, view_);
  return WindowVisibility{kWindowVisibilities.Restrict(visibility)};
}

void ViewWrapper::MaximizeWindow() { CallIfSet(table_, &Table::MaximizeWindow, view_); }

void ViewWrapper::MinimizeWindow() { CallIfSet(table_, &Table::MinimizeWindow, view_); }

void ViewWrapper::Fullscreen() { CallIfSet(table_, &Table::Fullscreen, view_); }

void ViewWrapper::Activate() { CallIfSet(table_, &Table::Activate, view_); }

uint32_t ViewWrapper::GetWindowOrientation() {
  return kOrientations.Restrict(CallIfSet(table_, &Table::GetWindowOrientation, 0u, view_));
}

unsigned int ViewWrapper::WindowOrientationChangedSubscribe(std::function<void()> callback) {
  return Subscribe(&Table::WindowOrientationChangedSubscribe, std::move(callback));
}

void ViewWrapper::WindowOrientationChangedUnsubscribe(unsigned int id) {
  CallIfSet(table_, &Table::WindowOrientationChangedUnsubscribe, view_, id);
}

uint32_t ViewWrapper::GetWindowWidth() const {
  return CallIfSet(table_, &Table::GetWindowWidth, 0u, view_);
}

uint32_t ViewWrapper::GetWindowHeight() const {
  return CallIfSet(table_, &Table::GetWindowHeight, 0u, view_);
}

uint32_t ViewWrapper::GetDeviceOrientation() const {
  return kOrientations.Restrict(CallIfSet(table_, &Table::GetDeviceOrientation, 0u, view_));
}

unsigned int ViewWrapper::DeviceOrientationChangedSubscribe(std::function<void()> callback) {
  return Subscribe(&Table::DeviceOrientationChangedSubscribe, std::move(callback));
}

void ViewWrapper::DeviceOrientationChangedUnsubscribe(unsigned int id) {
  CallIfSet(table_, &Table::DeviceOrientationChangedUnsubscribe, view_, id);
}

bool ViewWrapper::IsKeyboardVisible() const {
  return CallIfSet(table_, &Table::IsKeyboardVisible, false, view_);
}

unsigned int ViewWrapper::KeyboardVisibilityChangedSubscribe(std::function<void()> callback) {
  return Subscribe(&Table::KeyboardVisibilityChangedSubscribe, std::move(callback));
}

void ViewWrapper::KeyboardVisibilityChangedUnsubscribe(unsigned int id) {
  CallIfSet(table_, &Table::KeyboardVisibilityChangedUnsubscribe, view_, id);
}

bool ViewWrapper::SetStatusbarVisibility(StatusbarVisibility visibility) {
  const auto number = static_cast<uint32_t>(visibility);
  return kStatusbarVisibilities.Restrict(number) == number &&
         CallIfSet(table_, &Table::SetStatusbarVisibility, false, view_, number);
}

ViewWrapper::StatusbarVisibility ViewWrapper::GetStatusbarVisibility() const {
  const uint32_t visibility = CallIfSet(table_, &Table::GetStatusbarVisibility, 0u, view_);
  return StatusbarVisibility{kStatusbarVisibilities.Restrict(visibility)};
}

bool ViewWrapper::IsStatusbarVisible() const {
  return CallIfSet(table_, &Table::IsStatusbarVisible, false, view_);
}

bool ViewWrapper::IsBackgroundVisible() const {
  return CallIfSet(table_, &Table::IsBackgroundVisible, false, view_);
}

void ViewWrapper::SetBackgroundVisible(bool visible) {
  CallIfSet(table_, &Table::SetBackgroundVisible, view_, visible);
}

ViewWrapper::WindowType ViewWrapper::GetWindowType() const {
  return WindowType{kWindowTypes.Restrict(CallIfSet(table_, &Table::GetWindowType, 0u, view_))};
}

void ViewWrapper::GetHandle(HandleEntry entry, void** out) const {
  if (!out) return;
  *out = nullptr;
  CallIfSet(table_, entry, view_, out);
}

// ---- Entries that must be covered, and log --------------------------------------------------

bool ViewWrapper::GetWindowMode() const {
  if (!FORGE_COVERED_OR_LOG(table_, GetWindowVisibility)) return false;
  return table_.GetWindowVisibility(view_) == kWindowModeVisibility;
}

unsigned int ViewWrapper::WindowVisibilityChangedSubscribe(std::function<void()> callback) {
  if (!FORGE_COVERED_OR_LOG(table_, WindowVisibilityChangedSubscribe)) return 0;
  return Subscribe(&Table::WindowVisibilityChangedSubscribe, std::move(callback));
}

void ViewWrapper::WindowVisibilityChangedUnsubscribe(unsigned int id) {
  if (!FORGE_COVERED_OR_LOG(table_, WindowVisibilityChangedUnsubscribe)) return;
  table_.WindowVisibilityChangedUnsubscribe(view_, id);
}

ViewWrapper::Theme ViewWrapper::GetTheme() const {
  if (!FORGE_COVERED_OR_LOG(table_, LockResources)) return {};
  if (!FORGE_COVERED_OR_LOG(table_, UnlockResources)) return {};
  if (!FORGE_COVERED_OR_LOG(table_, GetTheme)) return {};
  const ResourcesLock lock(table_, view_);
  FlutterOstrelTheme theme{};
  theme.size = sizeof(theme);
  const uint32_t result = table_.GetTheme(view_, lock.GetChunkId(), &theme, sizeof(theme));
  return result == 0 ? ThemeOf(theme) : Theme();
}

unsigned int ViewWrapper::ThemeChangedSubscribe(std::function<void()> callback) {
  if (!FORGE_COVERED_OR_LOG(table_, ThemeChangedSubscribe)) return 0;
  return Subscribe(&Table::ThemeChangedSubscribe, std::move(callback));
}

void ViewWrapper::ThemeChangedUnsubscribe(unsigned int id) {
  if (!FORGE_COVERED_OR_LOG(table_, ThemeChangedUnsubscribe)) return;
  table_.ThemeChangedUnsubscribe(view_, id);
}

EncodableValue ViewWrapper::GetWindowPayload() const {
  if (!FORGE_COVERED_OR_LOG(table_, LockResources)) return {};
  if (!FORGE_COVERED_OR_LOG(table_, UnlockResources)) return {};
  if (!FORGE_COVERED_OR_LOG(table_, GetWindowPayload)) return {};
  const ResourcesLock lock(table_, view_);
  ForgeBufferView view{};
  view.struct_size = sizeof(view);
  if (table_.GetWindowPayload(view_, lock.GetChunkId(), &view, sizeof(view)) != 0) return {};
  const ForgeBufferView covered = forge::CopyCovered(&view);
  return details::DecodeForeign("window payload", covered.data, covered.size);
}

void ViewWrapper::CreatePopupWindow(
    const std::string& entry_point, const std::string& text, const EncodableValue* payload,
    const std::function<void(const EncodableValue&, std::string)>& callback) {
  if (!forge::Covered(table_, &Table::CreatePopupWindow)) {
    // This text differs from the others on purpose.
    FORGE_LOG(kError) << "Method \"CreatePopupWindow()\" is not provided by the loaded API.";
    return;
  }
  if (entry_point.empty()) {
    if (callback) callback(EncodableValue(), "Expected not empty entry point");
    return;
  }
  const forge::Buffer bytes = payload ? payload->Serialize() : forge::Buffer();
  const auto slot = details::CreateResultSlot(callback);
  table_.CreatePopupWindow(view_, entry_point.c_str(), text.c_str(), bytes.GetData(),
                           bytes.GetSize(), slot ? &*slot : nullptr);
}

void ViewWrapper::CloseWindow(const EncodableValue& result) {
  if (!FORGE_COVERED_OR_LOG(table_, CloseWindow)) return;
  const forge::Buffer bytes = result.Serialize();
  table_.CloseWindow(view_, bytes.GetData(), bytes.GetSize());
}

// The caller has made the other test of the entry, if it has one.
unsigned int ViewWrapper::Subscribe(SubscribeEntry entry, std::function<void()> callback) const {
  if (!forge::Set(table_, entry)) return 0;
  const auto slot =
      details::CreateFencedSlot<FlutterOstrelSlot>("view subscription", std::move(callback));
  return (table_.*entry)(view_, &slot);
}

}  // namespace cw
