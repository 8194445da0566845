/* The embedder's C interface for plug-ins: the context that a plug-in is registered with, and the
 * tables and structures that it leads to.
 *
 *   uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
 *     static FlutterOstrelApplicationProcTable table;
 *     table.size = sizeof table;
 *     return FLUTTER_OSTREL_HAS(context, ApplicationProcTableLoad) &&
 *            context->ApplicationProcTableLoad(&table, sizeof table, context->application) &&
 *            FLUTTER_OSTREL_HAS(&table, Exit);
 *   }
 *
 * A plug-in in C++ has objects for all of it: cw/plugin_registrar.h.
 *
 * Sizes. A structure starts with its declared size in bytes (but for the description of a texture,
 * which never changes); a field counts only if that size reaches the field's end. Whoever asks for
 * a structure clears it, sets the size that it knows and passes the size along; whoever fills it
 * may lower the size to the one that it knows. Structures grow only at the end.
 *
 * Results. Loaders, and entries that fill a version, answer non-zero on success; entries that
 * fill a theme or a payload, or create a window, answer zero on success. A subscription's id is
 * never 0.
 *
 * Ownership. Arguments are borrowed until the call returns. A slot structure is borrowed, too, but
 * what it holds is given away: whatever an entry that takes a slot answers, the embedder calls
 * `release` exactly once, after the last call of `callback`. A null slot means that nobody listens.
 *
 * Threads. Everything is called on the embedder's thread, save EnqueueTask, which may be called
 * from any; callbacks arrive there, but for those of textures: frames are asked for and released,
 * and the end of a texture is told, on the embedder's thread or on its renderer's. An entry may be
 * called from within a callback on the embedder's thread.
 *
 * Errors. No exception may leave a function of this interface, on either side. */
#ifndef FLUTTER_OSTREL_FLUTTER_OSTREL_H_
#define FLUTTER_OSTREL_FLUTTER_OSTREL_H_

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Templates over these types are as visible as the types. */
#pragma GCC visibility push(default)

/* Does the structure that is pointed to offer the field: covered by its declared size, and set? */
#define FLUTTER_OSTREL_HAS(structure, field)                                          \
  ((structure)->size >=                                                               \
       (size_t)((const char*)(&(structure)->field + 1) - (const char*)(structure)) && \
   (structure)->field != NULL)

/* Handles: opaque. An application's is valid as long as the process, the others as long as their
 * engine. */
typedef struct _FlutterOstrelApplication _FlutterOstrelApplication;
typedef struct _FlutterOstrelEngine _FlutterOstrelEngine;
typedef struct _FlutterOstrelView _FlutterOstrelView;
typedef struct _FlutterOstrelResponse _FlutterOstrelResponse; /* Of one incoming message. */

struct ForgeBufferView; /* forge/forge_capi.h */

/* ---- Slots: callbacks that the plug-in gives ------------------------------------------------ */

typedef struct FlutterOstrelSlot {
  uint32_t size;
  void (*callback)(void* user_data);
  void (*release)(void* user_data);
  void* user_data;
} FlutterOstrelSlot;

typedef struct FlutterOstrelBoolSlot {
  uint32_t size;
  void (*callback)(void* user_data, bool value);
  void (*release)(void* user_data);
  void* user_data;
} FlutterOstrelBoolSlot;

/* What a window answers when it is done: one value in the standard codec's encoding, and a text
 * (null: none), both borrowed until the callback returns. */
typedef struct FlutterOstrelResultSlot {
  uint32_t size;
  void (*callback)(void* user_data, const uint8_t* data, size_t data_size, const char* text);
  void (*release)(void* user_data);
  void* user_data;
} FlutterOstrelResultSlot;

/* ---- Application ---------------------------------------------------------------------------- */

typedef struct FlutterOstrelOSVersion {
  uint32_t size;
  uint32_t numbers[4];
} FlutterOstrelOSVersion;

typedef struct FlutterOstrelEmbedderVersion {
  uint32_t size;
  uint32_t numbers[3];
} FlutterOstrelEmbedderVersion;

typedef struct FlutterOstrelWindowParameters {
  uint32_t size;
  const uint8_t* payload; /* One value in the standard codec's encoding; null: none. */
  size_t payload_size;
  const char* first_text; /* The two texts that the window is opened with. */
  const char* second_text;
} FlutterOstrelWindowParameters;

typedef struct FlutterOstrelApplicationProcTable {
  uint32_t size;

  /* Copies the text of a kind (1 to 3) into the buffer, as much of it as fits before a NUL, and
   * returns how many bytes the whole needs with its NUL; 0: there is none. Asked with a null buffer
   * first. */
  size_t (*GetApplicationInfo)(_FlutterOstrelApplication* application, uint32_t kind, char* buffer,
                               size_t buffer_size);

  /* The arguments of the Dart entry point. The array and its texts are the embedder's, and stay
   * as they are. */
  void (*GetDartEntryPointArgs)(_FlutterOstrelApplication* application, int* count,
                                const char* const** arguments);

  /* Fill a version; non-zero on success. They belong to the process, so they take no handle. */
  uint32_t (*GetOSVersion)(FlutterOstrelOSVersion* version, uint32_t size);
  uint32_t (*GetEmbedderVersion)(FlutterOstrelEmbedderVersion* version, uint32_t size);

  /* Calls the slot once on the embedder's thread, later; one that can no longer be called is only
   * released, on any thread. `value` is the embedder's to interpret. [any thread] */
  void (*EnqueueTask)(_FlutterOstrelApplication* application, const FlutterOstrelSlot* slot,
                      uint32_t value);

  /* Ends the application with this exit code, once the call has returned. */
  void (*Exit)(_FlutterOstrelApplication* application, int exit_code);

  /* The directory of a kind (1 to 23), by the rules of GetApplicationInfo. Kind 1 is where the
   * application's libraries lie. */
  size_t (*GetPath)(_FlutterOstrelApplication* application, uint32_t kind, char* buffer,
                    size_t buffer_size);

  /* Was the application given the permission? The name need not end with a NUL. */
  bool (*HasPermission)(_FlutterOstrelApplication* application, const char* permission,
                        size_t permission_size);

  /* Opens the main window; zero on success. The slot is called once, when the window is done. */
  uint32_t (*CreateMainWindow)(_FlutterOstrelApplication* application,
                               const FlutterOstrelWindowParameters* parameters,
                               const FlutterOstrelResultSlot* slot);
} FlutterOstrelApplicationProcTable;

/* ---- Messenger ------------------------------------------------------------------------------ */

/* The answer to a message that was sent; null data: nobody answered, or with nothing. */
typedef void (*FlutterOstrelReplyCallback)(const uint8_t* data, size_t data_size, void* user_data);

/* Answers an incoming message: to be called exactly once for its response handle, within the
 * message callback or later, as long as the engine lives. */
typedef void (*FlutterOstrelSendResponse)(_FlutterOstrelEngine* engine,
                                          _FlutterOstrelResponse* response, const uint8_t* data,
                                          size_t data_size);

/* An incoming message. The table has no entry that answers it: the function that does so comes
 * with each message, next to the response handle that it wants. */
typedef void (*FlutterOstrelMessageCallback)(_FlutterOstrelEngine* engine, const char* channel,
                                             const uint8_t* data, size_t data_size,
                                             FlutterOstrelSendResponse send_response,
                                             _FlutterOstrelResponse* response, void* user_data);

/* Channels are named by NUL-terminated UTF-8 texts. */
typedef struct FlutterOstrelMessengerProcTable {
  uint32_t size;

  /* Sends a message. With a callback (null: no answer is wanted) and the result true, the callback
   * is called exactly once, unless the engine ends first; with false it is not called. */
  bool (*Send)(_FlutterOstrelEngine* engine, const char* channel, const uint8_t* data,
               size_t data_size, FlutterOstrelReplyCallback callback, void* user_data);

  /* Has the channel's messages delivered to the callback, in the place of an earlier one; null:
   * to nobody. */
  void (*SetMessageHandler)(_FlutterOstrelEngine* engine, const char* channel,
                            FlutterOstrelMessageCallback callback, void* user_data);

  /* Calls the slot whenever the other side begins (true) or ceases (false) to listen on the
   * channel; how it is now is not told. Returns the subscription's id, 0 on failure. */
  unsigned int (*ChannelUpdateSubscribe)(_FlutterOstrelEngine* engine, const char* channel,
                                         const FlutterOstrelBoolSlot* slot);

  /* Ends a subscription; an unknown id is ignored. */
  void (*ChannelUpdateUnsubscribe)(_FlutterOstrelEngine* engine, const char* channel,
                                   unsigned int id);
} FlutterOstrelMessengerProcTable;

/* ---- View ----------------------------------------------------------------------------------- */

/* Its texts are borrowed until the chunk that it was asked for with is unlocked. */
typedef struct FlutterOstrelTheme {
  uint32_t size;
  uint32_t flag; /* Non-zero: true. */
  uint32_t values[4];
  const char* texts[4];
} FlutterOstrelTheme;

typedef struct FlutterOstrelViewProcTable {
  uint32_t size;

  /* The handles of the graphics stack; null where there is none. */
  void (*GetEGLConfig)(_FlutterOstrelView* view, void** config);
  void (*GetEGLDisplay)(_FlutterOstrelView* view, void** display);
  void (*GetNativeDisplay)(_FlutterOstrelView* view, void** display);
  void (*GetEGLGetProcAddress)(_FlutterOstrelView* view, void** function);
  void (*GetEGLContextHandle)(_FlutterOstrelView* view, void** context);
  void (*GetEGLOffscreenContextHandle)(_FlutterOstrelView* view, void** context);

  /* Device pixels to a logical one. */
  float (*GetDevicePixelRatio)(_FlutterOstrelView* view);

  /* The window's visibility, 1 to 5. Subscriptions, here and below: the slot is called whenever the
   * value has changed; Subscribe returns an id, 0 on failure; an unknown id is ignored. */
  uint32_t (*GetWindowVisibility)(_FlutterOstrelView* view);
  unsigned int (*WindowVisibilityChangedSubscribe)(_FlutterOstrelView* view,
                                                   const FlutterOstrelSlot* slot);
  void (*WindowVisibilityChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* Ask for a state of the window; whoever subscribed is told when it has changed. */
  void (*MaximizeWindow)(_FlutterOstrelView* view);
  void (*MinimizeWindow)(_FlutterOstrelView* view);

  /* In degrees: 0, 90, 180 or 270. */
  uint32_t (*GetWindowOrientation)(_FlutterOstrelView* view);
  unsigned int (*WindowOrientationChangedSubscribe)(_FlutterOstrelView* view,
                                                    const FlutterOstrelSlot* slot);
  void (*WindowOrientationChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* In pixels. */
  uint32_t (*GetWindowWidth)(_FlutterOstrelView* view);
  uint32_t (*GetWindowHeight)(_FlutterOstrelView* view);

  /* In degrees: 0, 90, 180 or 270. */
  uint32_t (*GetDeviceOrientation)(_FlutterOstrelView* view);
  unsigned int (*DeviceOrientationChangedSubscribe)(_FlutterOstrelView* view,
                                                    const FlutterOstrelSlot* slot);
  void (*DeviceOrientationChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* Does the on-screen keyboard show? */
  bool (*IsKeyboardVisible)(_FlutterOstrelView* view);
  unsigned int (*KeyboardVisibilityChangedSubscribe)(_FlutterOstrelView* view,
                                                     const FlutterOstrelSlot* slot);
  void (*KeyboardVisibilityChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* The wanted visibility of the status bar, 1 or 2 (0: none is wanted; false: refused), and
   * whether it shows. */
  bool (*SetStatusbarVisibility)(_FlutterOstrelView* view, uint32_t visibility);
  uint32_t (*GetStatusbarVisibility)(_FlutterOstrelView* view);
  bool (*IsStatusbarVisible)(_FlutterOstrelView* view);

  /* Ask for the whole screen, and for the foreground. */
  void (*Fullscreen)(_FlutterOstrelView* view);
  void (*Activate)(_FlutterOstrelView* view);

  /* Does the window draw its background? */
  bool (*IsBackgroundVisible)(_FlutterOstrelView* view);
  void (*SetBackgroundVisible)(_FlutterOstrelView* view, bool visible);

  /* The kind of window, 1 to 3. */
  uint32_t (*GetWindowType)(_FlutterOstrelView* view);

  /* Opens a chunk and returns its id; what is handed out for the chunk stays valid until it is
   * unlocked. An unknown id is ignored. */
  uint32_t (*LockResources)(_FlutterOstrelView* view);
  void (*UnlockResources)(_FlutterOstrelView* view, uint32_t chunk_id);

  /* Fills the theme; zero on success. */
  uint32_t (*GetTheme)(_FlutterOstrelView* view, uint32_t chunk_id, FlutterOstrelTheme* theme,
                       uint32_t size);
  /* As the other subscriptions. */
  unsigned int (*ThemeChangedSubscribe)(_FlutterOstrelView* view, const FlutterOstrelSlot* slot);
  void (*ThemeChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* Shows what the window was opened with, one value in the standard codec's encoding; zero on
   * success. */
  uint32_t (*GetWindowPayload)(_FlutterOstrelView* view, uint32_t chunk_id,
                               struct ForgeBufferView* payload, uint32_t size);

  /* Opens a popup window at a Dart entry point. The slot is called once, when it is done. */
  void (*CreatePopupWindow)(_FlutterOstrelView* view, const char* entry_point, const char* text,
                            const uint8_t* payload, size_t payload_size,
                            const FlutterOstrelResultSlot* slot);

  /* Closes this window; `result` (one value in the standard codec's encoding) goes to whoever
   * opened it. */
  void (*CloseWindow)(_FlutterOstrelView* view, const uint8_t* result, size_t result_size);
} FlutterOstrelViewProcTable;

/* ---- Textures ------------------------------------------------------------------------------- */

/* Four bytes a pixel, in the order red, green, blue, alpha; rows from the top, without gaps. */
typedef struct FlutterOstrelPixelBuffer {
  uint32_t size;
  const uint8_t* pixels;
  size_t width; /* In pixels. */
  size_t height;
  void (*release)(void* user_data); /* Called when the pixels were copied; null: no need. */
  void* user_data;
} FlutterOstrelPixelBuffer;

typedef struct FlutterOstrelOpenGLTexture {
  uint32_t size;
  uint32_t target; /* For example GL_TEXTURE_2D. */
  uint32_t name;
  uint32_t format; /* For example GL_RGBA8. */
  size_t width;    /* In pixels. */
  size_t height;
  void (*release)(void* user_data); /* Called when the frame was drawn; null: no need. */
  void* user_data;
} FlutterOstrelOpenGLTexture;

/* Asked for a frame, maybe on the renderer's thread, at the size (in pixels) at which it will be
 * shown; null: there is none. The structure stays valid until the next call for the texture, or
 * until the texture is gone. */
typedef const FlutterOstrelPixelBuffer* (*FlutterOstrelPixelBufferCallback)(size_t width,
                                                                            size_t height,
                                                                            void* user_data);
typedef const FlutterOstrelOpenGLTexture* (*FlutterOstrelOpenGLCallback)(size_t width,
                                                                         size_t height,
                                                                         void* user_data);

#define FLUTTER_OSTREL_PIXEL_BUFFER 0u
#define FLUTTER_OSTREL_OPENGL 1u

typedef struct FlutterOstrelPixelBufferSource {
  FlutterOstrelPixelBufferCallback callback;
  void* user_data;
} FlutterOstrelPixelBufferSource;

typedef struct FlutterOstrelOpenGLSource {
  uint32_t size;
  FlutterOstrelOpenGLCallback callback;
  void* user_data;
} FlutterOstrelOpenGLSource;

/* Where a texture's frames come from. */
typedef struct FlutterOstrelTextureDescriptor {
  uint32_t kind; /* One of the two above: which member of the union counts. */
  union {
    FlutterOstrelPixelBufferSource pixel_buffer;
    FlutterOstrelOpenGLSource opengl;
  } source;
} FlutterOstrelTextureDescriptor;

typedef struct FlutterOstrelTextureProcTable {
  uint32_t size;

  /* Returns the texture's id, -1 on failure. The callback is called until the texture is gone. */
  int64_t (*RegisterTexture)(_FlutterOstrelEngine* engine,
                             const FlutterOstrelTextureDescriptor* descriptor);

  /* False: unknown id, and the callback is not called. True: the callback (null: none) is called
   * once, when the texture is gone. */
  bool (*UnregisterTexture)(_FlutterOstrelEngine* engine, int64_t texture_id,
                            void (*callback)(void* user_data), void* user_data);

  /* A new frame is there to be asked for. False: unknown id. */
  bool (*MarkTextureFrameAvailable)(_FlutterOstrelEngine* engine, int64_t texture_id);
} FlutterOstrelTextureProcTable;

/* ---- The context ---------------------------------------------------------------------------- */

/* What a plug-in is registered with; borrowed until the registration function returns. Its
 * functions stay valid until the engine is destroyed. */
typedef struct FlutterOstrelPluginContext {
  uint32_t size;
  _FlutterOstrelApplication* application;
  _FlutterOstrelEngine* engine;
  _FlutterOstrelView* view;

  /* Has the callback called when the engine is about to be destroyed. Within the callback the
   * engine's tables still work; after it they must not be used. */
  void (*EngineDestroyedSubscribe)(_FlutterOstrelEngine* engine,
                                   void (*callback)(_FlutterOstrelEngine* engine));

  /* Fill a table of `size` bytes; non-zero on success. */
  uint32_t (*ApplicationProcTableLoad)(FlutterOstrelApplicationProcTable* table, uint32_t size,
                                       _FlutterOstrelApplication* application);
  uint32_t (*ViewProcTableLoad)(FlutterOstrelViewProcTable* table, uint32_t size,
                                _FlutterOstrelView* view);
  uint32_t (*TextureProcTableLoad)(FlutterOstrelTextureProcTable* table, uint32_t size,
                                   _FlutterOstrelEngine* engine);
  uint32_t (*MessengerProcTableLoad)(FlutterOstrelMessengerProcTable* table, uint32_t size,
                                     _FlutterOstrelEngine* engine);
} FlutterOstrelPluginContext;

/* A plug-in is a shared library that exports this function (this declaration makes it visible). It
 * is called once for each engine, on the embedder's thread, and answers non-zero when the plug-in
 * is ready. */
uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context);

#pragma GCC visibility pop

/* ---- The layout is fixed --------------------------------------------------------------------- */

/* On 32 bits, where the tables are what devices have; other machines follow the same rules. */
#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(FlutterOstrelPluginContext) == 36, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelApplicationProcTable) == 40, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelViewProcTable) == 160, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelTextureProcTable) == 16, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelMessengerProcTable) == 20, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelTheme) == 40, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelWindowParameters) == 20, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelOSVersion) == 20, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelEmbedderVersion) == 16, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelSlot) == 16, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelBoolSlot) == 16, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelResultSlot) == 16, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelTextureDescriptor) == 16, "The 32-bit layout is fixed");
static_assert(sizeof(FlutterOstrelOpenGLSource) == 12, "The 32-bit layout is fixed");
#endif

#ifdef __cplusplus
}
#endif

#endif /* FLUTTER_OSTREL_FLUTTER_OSTREL_H_ */
