#include "desk/embedder/offer.h"

#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>

#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {
namespace {

struct Entry {
  const char* name;
  uint32_t end;
};

struct Structure {
  const char* name;
  const Entry* entries;
  size_t count;
};

#define ENTRY(name) \
  { #name, static_cast < uint32_t>(offsetof(Table, name) + sizeof(void*)) }

namespace context {
using Table = FlutterOstrelPluginContext;
constexpr Entry kEntries[] = {
    ENTRY(application),
    ENTRY(engine),
    ENTRY(view),
    ENTRY(EngineDestroyedSubscribe),
    ENTRY(ApplicationProcTableLoad),
    ENTRY(ViewProcTableLoad),
    ENTRY(TextureProcTableLoad),
    ENTRY(MessengerProcTableLoad),
};
static_assert(sizeof(Table) == (1 + std::size(kEntries)) * sizeof(void*), "One is missing");
}  // namespace context

namespace application {
using Table = FlutterOstrelApplicationProcTable;
constexpr Entry kEntries[] = {
    ENTRY(GetApplicationInfo),
    ENTRY(GetDartEntryPointArgs),
    ENTRY(GetOSVersion),
    ENTRY(GetEmbedderVersion),
    ENTRY(EnqueueTask),
    ENTRY(Exit),
    ENTRY(GetPath),
    ENTRY(HasPermission),
    ENTRY(CreateMainWindow),
};
static_assert(sizeof(Table) == (1 + std::size(kEntries)) * sizeof(void*), "One is missing");
}  // namespace application

namespace view {
using Table = FlutterOstrelViewProcTable;
constexpr Entry kEntries[] = {
    ENTRY(GetEGLConfig),
    ENTRY(GetEGLDisplay),
    ENTRY(GetNativeDisplay),
    ENTRY(GetEGLGetProcAddress),
    ENTRY(GetEGLContextHandle),
    ENTRY(GetEGLOffscreenContextHandle),
    ENTRY(GetDevicePixelRatio),
    ENTRY(GetWindowVisibility),
    ENTRY(WindowVisibilityChangedSubscribe),
    ENTRY(WindowVisibilityChangedUnsubscribe),
    ENTRY(MaximizeWindow),
    ENTRY(MinimizeWindow),
    ENTRY(GetWindowOrientation),
    ENTRY(WindowOrientationChangedSubscribe),
    ENTRY(WindowOrientationChangedUnsubscribe),
    ENTRY(GetWindowWidth),
    ENTRY(GetWindowHeight),
    ENTRY(GetDeviceOrientation),
    ENTRY(DeviceOrientationChangedSubscribe),
    ENTRY(DeviceOrientationChangedUnsubscribe),
    ENTRY(IsKeyboardVisible),
    ENTRY(KeyboardVisibilityChangedSubscribe),
    ENTRY(KeyboardVisibilityChangedUnsubscribe),
    ENTRY(SetStatusbarVisibility),
    ENTRY(GetStatusbarVisibility),
    ENTRY(IsStatusbarVisible),
    ENTRY(Fullscreen),
    ENTRY(Activate),
    ENTRY(IsBackgroundVisible),
    ENTRY(SetBackgroundVisible),
    ENTRY(GetWindowType),
    ENTRY(LockResources),
    ENTRY(UnlockResources),
    ENTRY(GetTheme),
    ENTRY(ThemeChangedSubscribe),
    ENTRY(ThemeChangedUnsubscribe),
    ENTRY(GetWindowPayload),
    ENTRY(CreatePopupWindow),
    ENTRY(CloseWindow),
};
static_assert(sizeof(Table) == (1 + std::size(kEntries)) * sizeof(void*), "One is missing");
}  // namespace view

namespace texture {
using Table = FlutterOstrelTextureProcTable;
constexpr Entry kEntries[] = {
    ENTRY(RegisterTexture),
    ENTRY(UnregisterTexture),
    ENTRY(MarkTextureFrameAvailable),
};
static_assert(sizeof(Table) == (1 + std::size(kEntries)) * sizeof(void*), "One is missing");
}  // namespace texture

namespace messenger {
using Table = FlutterOstrelMessengerProcTable;
constexpr Entry kEntries[] = {
    ENTRY(Send),
    ENTRY(SetMessageHandler),
    ENTRY(ChannelUpdateSubscribe),
    ENTRY(ChannelUpdateUnsubscribe),
};
static_assert(sizeof(Table) == (1 + std::size(kEntries)) * sizeof(void*), "One is missing");
}  // namespace messenger

#undef ENTRY

constexpr Structure kStructures[] = {
    {"context", context::kEntries, std::size(context::kEntries)},
    {"application", application::kEntries, std::size(application::kEntries)},
    {"view", view::kEntries, std::size(view::kEntries)},
    {"texture", texture::kEntries, std::size(texture::kEntries)},
    {"messenger", messenger::kEntries, std::size(messenger::kEntries)},
};

Json DescribeStructure(const Structure& structure, uint32_t declared) {
  Json described{{"size", declared}};
  for (size_t i = 0; i < structure.count; ++i) {
    const Entry& entry = structure.entries[i];
    described[declared >= entry.end ? "entries" : "withheld"][entry.name] = entry.end;
  }
  return described;
}

}  // namespace

Json DescribeOffer(const Description& description) {
  DeclaredSizes sizes = description.declared_sizes;
  Json offer = Json::object();
  for (const Structure& structure : kStructures) {
    const uint32_t whole = GetWholeSize(structure.name);
    offer[structure.name] =
        DescribeStructure(structure, FindDeclaredSize(sizes, structure.name)->value_or(whole));
  }
  return offer;
}

}  // namespace desk
