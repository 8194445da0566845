#include "tests/support/fake_embedder.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "forge/forge_capi.h"

namespace test {
namespace {

FakeEmbedder* current = nullptr;

// Three different handles.
char handles[3];
const auto kApplication = reinterpret_cast<_FlutterOstrelApplication*>(&handles[0]);
const auto kEngine = reinterpret_cast<_FlutterOstrelEngine*>(&handles[1]);
const auto kView = reinterpret_cast<_FlutterOstrelView*>(&handles[2]);

template <typename Table, typename Handle>
uint32_t Load(Table* table, uint32_t size, const Table& full, Handle* handle, const char* name) {
  EXPECT_EQ(sizeof(Table), size);
  EXPECT_TRUE(handle);
  *table = full;
  return static_cast<uint32_t>(FakeEmbedder::Get().Record(name));
}

size_t CopyText(char* buffer, size_t size) {
  const std::string& text = FakeEmbedder::Get().text;
  if (buffer) std::memcpy(buffer, text.c_str(), std::min(size, text.size() + 1));
  return buffer ? text.size() + 1 + (FakeEmbedder::Get().answers.count("other size") ? 1 : 0)
                : text.size() + 1;
}

void KeepData(const uint8_t* data, size_t size) {
  FakeEmbedder::Get().data =
      size > 0 ? std::vector<uint8_t>(data, data + size) : std::vector<uint8_t>();
}

template <typename Version>
uint32_t FillVersion(Version* version, const char* name) {
  for (auto& number : version->numbers)
    number = static_cast<uint32_t>(&number - version->numbers) + 1;
  return static_cast<uint32_t>(FakeEmbedder::Get().Record(name));
}

}  // namespace

// An entry that only records and answers.
#define FAKE(table, entry)                                                        \
  table.entry = [](auto... arguments) {                                           \
    using Result = decltype(FakeEmbedder::Get().table.entry(arguments...));       \
    return static_cast<Result>(FakeEmbedder::Get().Record(#entry, arguments...)); \
  }
#define FAKE_HANDLE(entry)                                  \
  view.entry = [](_FlutterOstrelView* handle, void** out) { \
    FakeEmbedder::Get().Record(#entry, handle);             \
    *out = &FakeEmbedder::Get();                            \
  }
#define FAKE_SUBSCRIPTION(name)                                                                 \
  FAKE(view, name##ChangedUnsubscribe);                                                         \
  view.name##ChangedSubscribe = [](_FlutterOstrelView* handle, const FlutterOstrelSlot* slot) { \
    FakeEmbedder::Get().Take(slot, &FakeEmbedder::Get().void_slot_);                            \
    return static_cast<unsigned int>(                                                           \
        FakeEmbedder::Get().Record(#name "ChangedSubscribe", handle));                          \
  }

FakeEmbedder::FakeEmbedder() {
  current = this;
  context.application = kApplication;
  context.engine = kEngine;
  context.view = kView;
  context.EngineDestroyedSubscribe = [](_FlutterOstrelEngine* handle, auto callback) {
    Get().Record("EngineDestroyedSubscribe", handle);
    Get().engine_destroyed = callback;
    if (Get().within_subscribe) Get().within_subscribe();
  };
  context.ApplicationProcTableLoad = [](auto* table, uint32_t size, auto* handle) {
    return Load(table, size, Get().application, handle, "application");
  };
  context.ViewProcTableLoad = [](auto* table, uint32_t size, auto* handle) {
    return Load(table, size, Get().view, handle, "view");
  };
  context.TextureProcTableLoad = [](auto* table, uint32_t size, auto* handle) {
    return Load(table, size, Get().texture, handle, "texture");
  };
  context.MessengerProcTableLoad = [](auto* table, uint32_t size, auto* handle) {
    return Load(table, size, Get().messenger, handle, "messenger");
  };

  application.size = sizeof(application);
  application.GetApplicationInfo = [](auto* handle, uint32_t kind, char* buffer, size_t size) {
    Get().Record("GetApplicationInfo", handle, kind);
    return CopyText(buffer, size);
  };
  application.GetPath = [](auto* handle, uint32_t kind, char* buffer, size_t size) {
    Get().Record("GetPath", handle, kind);
    return CopyText(buffer, size);
  };
  application.GetDartEntryPointArgs = [](auto* handle, int* count, const char* const** arguments) {
    Get().Record("GetDartEntryPointArgs", handle);
    *count = static_cast<int>(Get().dart_arguments.size());
    *arguments = Get().dart_arguments.data();
  };
  application.GetOSVersion = [](FlutterOstrelOSVersion* version, uint32_t) {
    return FillVersion(version, "GetOSVersion");
  };
  application.GetEmbedderVersion = [](FlutterOstrelEmbedderVersion* version, uint32_t) {
    return FillVersion(version, "GetEmbedderVersion");
  };
  application.EnqueueTask = [](auto* handle, const FlutterOstrelSlot* slot, uint32_t value) {
    Get().Record("EnqueueTask", handle, value);
    Get().Take(slot, &Get().void_slot_);
  };
  FAKE(application, Exit);
  application.HasPermission = [](auto* handle, const char* permission, size_t size) {
    return Get().Record("HasPermission", handle, std::string(permission, size)) != 0;
  };
  application.CreateMainWindow = [](auto* handle, const FlutterOstrelWindowParameters* parameters,
                                    const FlutterOstrelResultSlot* slot) {
    EXPECT_EQ(sizeof(*parameters), parameters->size);
    KeepData(parameters->payload, parameters->payload_size);
    Get().Take(slot, &Get().result_slot_);
    return static_cast<uint32_t>(Get().Record("CreateMainWindow", handle, parameters->first_text,
                                              parameters->second_text, parameters->payload_size));
  };

  view.size = sizeof(view);
  FAKE_HANDLE(GetEGLConfig);
  FAKE_HANDLE(GetEGLDisplay);
  FAKE_HANDLE(GetNativeDisplay);
  FAKE_HANDLE(GetEGLGetProcAddress);
  FAKE_HANDLE(GetEGLContextHandle);
  FAKE_HANDLE(GetEGLOffscreenContextHandle);
  FAKE(view, GetDevicePixelRatio);
  FAKE(view, GetWindowVisibility);
  FAKE_SUBSCRIPTION(WindowVisibility);
  FAKE(view, MaximizeWindow);
  FAKE(view, MinimizeWindow);
  FAKE(view, GetWindowOrientation);
  FAKE_SUBSCRIPTION(WindowOrientation);
  FAKE(view, GetWindowWidth);
  FAKE(view, GetWindowHeight);
  FAKE(view, GetDeviceOrientation);
  FAKE_SUBSCRIPTION(DeviceOrientation);
  FAKE(view, IsKeyboardVisible);
  FAKE_SUBSCRIPTION(KeyboardVisibility);
  FAKE(view, SetStatusbarVisibility);
  FAKE(view, GetStatusbarVisibility);
  FAKE(view, IsStatusbarVisible);
  FAKE(view, Fullscreen);
  FAKE(view, Activate);
  FAKE(view, IsBackgroundVisible);
  FAKE(view, SetBackgroundVisible);
  FAKE(view, GetWindowType);
  FAKE(view, LockResources);
  FAKE(view, UnlockResources);
  view.GetTheme = [](auto* handle, uint32_t chunk, FlutterOstrelTheme* filled, uint32_t size) {
    EXPECT_EQ(sizeof(*filled), size);
    *filled = Get().theme;
    return static_cast<uint32_t>(Get().Record("GetTheme", handle, chunk));
  };
  FAKE_SUBSCRIPTION(Theme);
  view.GetWindowPayload = [](auto* handle, uint32_t chunk, ForgeBufferView* filled, uint32_t size) {
    EXPECT_EQ(sizeof(*filled), size);
    filled->data = Get().payload.data();
    filled->size = Get().payload.size();
    return static_cast<uint32_t>(Get().Record("GetWindowPayload", handle, chunk));
  };
  view.CreatePopupWindow = [](auto* handle, const char* entry_point, const char* second,
                              const uint8_t* bytes, size_t size,
                              const FlutterOstrelResultSlot* slot) {
    Get().Record("CreatePopupWindow", handle, entry_point, second, size);
    KeepData(bytes, size);
    Get().Take(slot, &Get().result_slot_);
  };
  view.CloseWindow = [](auto* handle, const uint8_t* bytes, size_t size) {
    Get().Record("CloseWindow", handle, size);
    KeepData(bytes, size);
  };

  messenger.size = sizeof(messenger);
  messenger.Send = [](auto* handle, const char* channel, const uint8_t* bytes, size_t size,
                      FlutterOstrelReplyCallback callback, void* closure) {
    FakeEmbedder& fake = Get();
    KeepData(bytes, size);
    fake.reply_callback = callback;
    fake.user_data = closure;
    if (fake.within_send) fake.within_send();
    return fake.Record("Send", handle, channel, size) != 0;
  };
  messenger.SetMessageHandler = [](auto* handle, const char* channel,
                                   FlutterOstrelMessageCallback callback, void* closure) {
    Get().Record("SetMessageHandler", handle, channel, callback != nullptr);
    Get().message_callback = callback;
    Get().user_data = closure;
  };
  messenger.ChannelUpdateSubscribe = [](auto* handle, const char* channel,
                                        const FlutterOstrelBoolSlot* slot) {
    Get().Take(slot, &Get().bool_slot_);
    return static_cast<unsigned int>(Get().Record("ChannelUpdateSubscribe", handle, channel));
  };
  FAKE(messenger, ChannelUpdateUnsubscribe);

  texture.size = sizeof(texture);
  texture.RegisterTexture = [](auto* handle, const FlutterOstrelTextureDescriptor* given) {
    Get().descriptor = *given;
    return static_cast<int64_t>(Get().Record("RegisterTexture", handle, given->kind));
  };
  texture.UnregisterTexture = [](auto* handle, int64_t id, void (*callback)(void*), void* closure) {
    Get().unregistered_callback = callback;
    Get().user_data = closure;
    if (Get().within_send) Get().within_send();
    return Get().Record("UnregisterTexture", handle, id) != 0;
  };
  FAKE(texture, MarkTextureFrameAvailable);
}

FakeEmbedder::~FakeEmbedder() {
  ReleaseSlot();
  current = nullptr;
}

FlutterOstrelPluginContext* FakeEmbedder::GetContext(size_t declared) {
  const size_t size = std::max(declared, sizeof(uint32_t));
  context_memory_.reset(std::calloc(1, size));
  context.size = static_cast<uint32_t>(declared);
  std::memcpy(context_memory_.get(), &context, std::min(size, sizeof(context)));
  return static_cast<FlutterOstrelPluginContext*>(context_memory_.get());
}

void FakeEmbedder::Call(const std::vector<uint8_t>& result, const char* result_text) {
  result_slot_.callback(result_slot_.user_data, result.data(), result.size(), result_text);
}

void FakeEmbedder::ReleaseSlot() {
  if (release_) release_(released_data_);
  release_ = nullptr;
}

FakeEmbedder& FakeEmbedder::Get() { return *current; }

const char* FakeEmbedder::Describe(_FlutterOstrelApplication* handle) {
  return handle == kApplication ? "application" : "?";
}
const char* FakeEmbedder::Describe(_FlutterOstrelEngine* handle) {
  return handle == kEngine ? "engine" : "?";
}
const char* FakeEmbedder::Describe(_FlutterOstrelView* handle) {
  return handle == kView ? "view" : "?";
}

}  // namespace test
