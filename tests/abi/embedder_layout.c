/* A literal copy of the embedder's context and tables, one line a field with its place (in units of
 * a pointer) and its type, held against the header. That it compiles is the test. */
#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "forge/forge_capi.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

typedef _FlutterOstrelApplication* App;
typedef _FlutterOstrelEngine* Engine;
typedef _FlutterOstrelView* View;

#define PLACE(field, index) \
  static_assert(offsetof(TABLE, field) == (index) * sizeof(void*), #field " moved")
#define FIELD(index, field, type)                                              \
  PLACE(field, index);                                                         \
  static_assert(_Generic(&((TABLE*)0)->field, type * : 1, default : 0), #field \
                " changed its "                                                \
                "type")
#define ENTRY(index, field, result, ...)                                               \
  PLACE(field, index);                                                                 \
  static_assert(_Generic(((TABLE*)0)->field, result(*)(__VA_ARGS__) : 1, default : 0), \
                #field " changed its type")
#define FIELDS(count) \
  static_assert(sizeof(TABLE) == (count) * sizeof(void*), "A field more or less")

/* clang-format off */
#define TABLE FlutterOstrelPluginContext
FIELD(0, size, uint32_t);
FIELD(1, application, App);
FIELD(2, engine, Engine);
FIELD(3, view, View);
ENTRY(4, EngineDestroyedSubscribe, void, Engine, void (*)(Engine));
ENTRY(5, ApplicationProcTableLoad, uint32_t, FlutterOstrelApplicationProcTable*, uint32_t, App);
ENTRY(6, ViewProcTableLoad, uint32_t, FlutterOstrelViewProcTable*, uint32_t, View);
ENTRY(7, TextureProcTableLoad, uint32_t, FlutterOstrelTextureProcTable*, uint32_t, Engine);
ENTRY(8, MessengerProcTableLoad, uint32_t, FlutterOstrelMessengerProcTable*, uint32_t, Engine);
FIELDS(9);
#undef TABLE

#define TABLE FlutterOstrelApplicationProcTable
FIELD(0, size, uint32_t);
ENTRY(1, GetApplicationInfo, size_t, App, uint32_t, char*, size_t);
ENTRY(2, GetDartEntryPointArgs, void, App, int*, const char* const**);
ENTRY(3, GetOSVersion, uint32_t, FlutterOstrelOSVersion*, uint32_t);
ENTRY(4, GetEmbedderVersion, uint32_t, FlutterOstrelEmbedderVersion*, uint32_t);
ENTRY(5, EnqueueTask, void, App, const FlutterOstrelSlot*, uint32_t);
ENTRY(6, Exit, void, App, int);
ENTRY(7, GetPath, size_t, App, uint32_t, char*, size_t);
ENTRY(8, HasPermission, bool, App, const char*, size_t);
ENTRY(9, CreateMainWindow, uint32_t, App, const FlutterOstrelWindowParameters*, const FlutterOstrelResultSlot*);
FIELDS(10);
#undef TABLE

#define TABLE FlutterOstrelMessengerProcTable
FIELD(0, size, uint32_t);
ENTRY(1, Send, bool, Engine, const char*, const uint8_t*, size_t, FlutterOstrelReplyCallback, void*);
ENTRY(2, SetMessageHandler, void, Engine, const char*, FlutterOstrelMessageCallback, void*);
ENTRY(3, ChannelUpdateSubscribe, unsigned int, Engine, const char*, const FlutterOstrelBoolSlot*);
ENTRY(4, ChannelUpdateUnsubscribe, void, Engine, const char*, unsigned int);
FIELDS(5);
#undef TABLE

#define TABLE FlutterOstrelViewProcTable
FIELD(0, size, uint32_t);
ENTRY(1, GetEGLConfig, void, View, void**);
ENTRY(2, GetEGLDisplay, void, View, void**);
ENTRY(3, GetNativeDisplay, void, View, void**);
ENTRY(4, GetEGLGetProcAddress, void, View, void**);
ENTRY(5, GetEGLContextHandle, void, View, void**);
ENTRY(6, GetEGLOffscreenContextHandle, void, View, void**);
ENTRY(7, GetDevicePixelRatio, float, View);
ENTRY(8, GetWindowVisibility, uint32_t, View);
ENTRY(9, WindowVisibilityChangedSubscribe, unsigned int, View, const FlutterOstrelSlot*);
ENTRY(10, WindowVisibilityChangedUnsubscribe, void, View, unsigned int);
ENTRY(11, MaximizeWindow, void, View);
ENTRY(12, MinimizeWindow, void, View);
ENTRY(13, GetWindowOrientation, uint32_t, View);
ENTRY(14, WindowOrientationChangedSubscribe, unsigned int, View, const FlutterOstrelSlot*);
ENTRY(15, WindowOrientationChangedUnsubscribe, void, View, unsigned int);
ENTRY(16, GetWindowWidth, uint32_t, View);
ENTRY(17, GetWindowHeight, uint32_t, View);
ENTRY(18, GetDeviceOrientation, uint32_t, View);
ENTRY(19, DeviceOrientationChangedSubscribe, unsigned int, View, const FlutterOstrelSlot*);
ENTRY(20, DeviceOrientationChangedUnsubscribe, void, View, unsigned int);
ENTRY(21, IsKeyboardVisible, bool, View);
ENTRY(22, KeyboardVisibilityChangedSubscribe, unsigned int, View, const FlutterOstrelSlot*);
ENTRY(23, KeyboardVisibilityChangedUnsubscribe, void, View, unsigned int);
ENTRY(24, SetStatusbarVisibility, bool, View, uint32_t);
ENTRY(25, GetStatusbarVisibility, uint32_t, View);
ENTRY(26, IsStatusbarVisible, bool, View);
ENTRY(27, Fullscreen, void, View);
ENTRY(28, Activate, void, View);
ENTRY(29, IsBackgroundVisible, bool, View);
ENTRY(30, SetBackgroundVisible, void, View, bool);
ENTRY(31, GetWindowType, uint32_t, View);
ENTRY(32, LockResources, uint32_t, View);
ENTRY(33, UnlockResources, void, View, uint32_t);
ENTRY(34, GetTheme, uint32_t, View, uint32_t, FlutterOstrelTheme*, uint32_t);
ENTRY(35, ThemeChangedSubscribe, unsigned int, View, const FlutterOstrelSlot*);
ENTRY(36, ThemeChangedUnsubscribe, void, View, unsigned int);
ENTRY(37, GetWindowPayload, uint32_t, View, uint32_t, ForgeBufferView*, uint32_t);
ENTRY(38, CreatePopupWindow, void, View, const char*, const char*, const uint8_t*, size_t, const FlutterOstrelResultSlot*);
ENTRY(39, CloseWindow, void, View, const uint8_t*, size_t);
FIELDS(40);
#undef TABLE

#define TABLE FlutterOstrelTextureProcTable
FIELD(0, size, uint32_t);
ENTRY(1, RegisterTexture, int64_t, Engine, const FlutterOstrelTextureDescriptor*);
ENTRY(2, UnregisterTexture, bool, Engine, int64_t, void (*)(void*), void*);
ENTRY(3, MarkTextureFrameAvailable, bool, Engine, int64_t);
FIELDS(4);
#undef TABLE

#define TABLE FlutterOstrelResultSlot
FIELD(0, size, uint32_t);
ENTRY(1, callback, void, void*, const uint8_t*, size_t, const char*);
ENTRY(2, release, void, void*);
FIELD(3, user_data, void*);
FIELDS(4);
#undef TABLE

#define TABLE FlutterOstrelWindowParameters
FIELD(0, size, uint32_t);
FIELD(1, payload, const uint8_t*);
FIELD(2, payload_size, size_t);
FIELD(3, first_text, const char*);
FIELD(4, second_text, const char*);
FIELDS(5);
#undef TABLE
/* clang-format on */

/* Without pointers, the same everywhere; the theme's texts follow its numbers. */
static_assert(sizeof(FlutterOstrelOSVersion) == 20, "Four numbers");
static_assert(sizeof(FlutterOstrelEmbedderVersion) == 16, "Three numbers");
static_assert(offsetof(FlutterOstrelTheme, values) == 8, "After size and flag");
static_assert(offsetof(FlutterOstrelTheme, texts) == 24, "After the values");
static_assert(sizeof(FlutterOstrelTheme) == 24 + 4 * sizeof(char*), "Four texts");
