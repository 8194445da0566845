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
 * Sizes. A structure starts with its declared size in bytes (except the description of a texture,
 * which never changes). A field counts only if that size reaches the field's end. The caller that
 * asks for a structure clears it, sets the size that it knows and passes the size along; the side
 * that fills it may lower the size to the one that it knows. Structures grow only at the end.
 *
 * Results. Loaders, and entries that fill a version, answer non-zero on success; entries that
 * fill a theme or a payload, or create a window, answer zero on success. A subscription's id is
 * never 0.
 *
 * Ownership. Arguments are borrowed until the call returns. A slot structure is borrowed, too, but
 * its content is given away: whatever an entry that takes a slot answers, the embedder calls
 * `release` exactly once, after the last call of `callback`. A null slot means that nobody listens.
 *
 * Threads. Everything is called on the embedder's thread, except EnqueueTask, which may be called
 * from any thread. Callbacks arrive on the embedder's thread, except those of textures: frames are
 * asked for and released, and the end of a texture is told, on the embedder's thread or on its
 * renderer's. An entry may be called from within a callback on the embedder's thread.
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

/* True when the structure that is pointed to offers the field: its declared size covers the field,
 * and the field is not null. */
#define FLUTTER_OSTREL_HAS(structure, field)                                          \
  ((structure)->size >=                                                               \
       (size_t)((const char*)(&(structure)->field + 1) - (const char*)(structure)) && \
   (structure)->field != NULL)

/* Handles are opaque. The application's handle is valid as long as the process, the others as long
 * as their engine. */
typedef struct _FlutterOstrelApplication _FlutterOstrelApplication;
typedef struct _FlutterOstrelEngine _FlutterOstrelEngine;
typedef struct _FlutterOstrelView _FlutterOstrelView;

/* The handle of one incoming message, to answer it with; valid until it was answered. */
typedef struct _FlutterOstrelResponse _FlutterOstrelResponse;

struct ForgeBufferView; /* forge/forge_capi.h */

/* ---- Slots: callbacks that the plug-in gives ------------------------------------------------ */

/* A callback without arguments. `callback` and `release` receive `user_data`; each may be null. */
typedef struct FlutterOstrelSlot {
  uint32_t size;
  void (*callback)(void* user_data);
  void (*release)(void* user_data);
  void* user_data;
} FlutterOstrelSlot;

/* The same with a truth value. */
typedef struct FlutterOstrelBoolSlot {
  uint32_t size;
  void (*callback)(void* user_data, bool value);
  void (*release)(void* user_data);
  void* user_data;
} FlutterOstrelBoolSlot;

/* The answer of a window that is done: one value in the standard codec's encoding (null data: none)
 * and a text (null: none). Both are borrowed until the callback returns. */
typedef struct FlutterOstrelResultSlot {
  uint32_t size;
  void (*callback)(void* user_data, const uint8_t* data, size_t data_size, const char* text);
  void (*release)(void* user_data);
  void* user_data;
} FlutterOstrelResultSlot;

/* ---- Application ---------------------------------------------------------------------------- */

/* The version of the operating system, and that of the embedder. */
typedef struct FlutterOstrelOSVersion {
  uint32_t size;
  uint32_t numbers[4];
} FlutterOstrelOSVersion;

typedef struct FlutterOstrelEmbedderVersion {
  uint32_t size;
  uint32_t numbers[3];
} FlutterOstrelEmbedderVersion;

/* What a main window is opened with. */
typedef struct FlutterOstrelWindowParameters {
  uint32_t size;
  const uint8_t* payload; /* One value in the standard codec's encoding; null: none. */
  size_t payload_size;
  const char* first_text; /* The meaning of the two texts is the embedder's. */
  const char* second_text;
} FlutterOstrelWindowParameters;

/* The services of the application. */
typedef struct FlutterOstrelApplicationProcTable {
  uint32_t size;

  /* Copies the text of a kind (1 to 3) into the buffer, as much of it as fits before a NUL, and
   * returns how many bytes the whole text needs with its NUL. 0: there is none. A caller asks with
   * a null buffer first. */
  size_t (*GetApplicationInfo)(_FlutterOstrelApplication* application, uint32_t kind, char* buffer,
                               size_t buffer_size);

  /* Stores the number and the array of the Dart entry point's arguments. The array and its texts
   * belong to the embedder and do not change. */
  void (*GetDartEntryPointArgs)(_FlutterOstrelApplication* application, int* count,
                                const char* const** arguments);

  /* Fill a version; non-zero on success. Versions belong to the process: they take no handle. */
  uint32_t (*GetOSVersion)(FlutterOstrelOSVersion* version, uint32_t size);
  uint32_t (*GetEmbedderVersion)(FlutterOstrelEmbedderVersion* version, uint32_t size);

  /* Calls the slot once, later, on the embedder's thread. A slot that can no longer be called is
   * only released, on any thread. The embedder defines the meaning of `value`. [any thread] */
  void (*EnqueueTask)(_FlutterOstrelApplication* application, const FlutterOstrelSlot* slot,
                      uint32_t value);

  /* Ends the application with this exit code, after the call has returned. */
  void (*Exit)(_FlutterOstrelApplication* application, int exit_code);

  /* The directory of a kind (1 to 23), by the rules of GetApplicationInfo. Kind 1 is where the
   * application's libraries lie. */
  size_t (*GetPath)(_FlutterOstrelApplication* application, uint32_t kind, char* buffer,
                    size_t buffer_size);

  /* Returns whether the application was given the permission. The name need not end with a NUL. */
  bool (*HasPermission)(_FlutterOstrelApplication* application, const char* permission,
                        size_t permission_size);

  /* Opens the main window; zero on success. The slot is called once, when the window is done. A
   * null slot: the answer does not matter. */
  uint32_t (*CreateMainWindow)(_FlutterOstrelApplication* application,
                               const FlutterOstrelWindowParameters* parameters,
                               const FlutterOstrelResultSlot* slot);
} FlutterOstrelApplicationProcTable;

/* ---- Messenger ------------------------------------------------------------------------------ */

/* Receives the answer to a message that was sent. Null data: nobody answered, or the answer is
 * empty. The data is borrowed until the callback returns. */
typedef void (*FlutterOstrelReplyCallback)(const uint8_t* data, size_t data_size, void* user_data);

/* Answers an incoming message. It must be called exactly once for the message's response handle,
 * within the message callback or later, as long as the engine lives. Null data is the empty
 * answer. */
typedef void (*FlutterOstrelSendResponse)(_FlutterOstrelEngine* engine,
                                          _FlutterOstrelResponse* response, const uint8_t* data,
                                          size_t data_size);

/* Receives an incoming message. No entry of the table answers it: the function that does comes with
 * each message, together with the response handle. */
typedef void (*FlutterOstrelMessageCallback)(_FlutterOstrelEngine* engine, const char* channel,
                                             const uint8_t* data, size_t data_size,
                                             FlutterOstrelSendResponse send_response,
                                             _FlutterOstrelResponse* response, void* user_data);

/* The messages of an engine. Channels are named by NUL-terminated UTF-8 texts. */
typedef struct FlutterOstrelMessengerProcTable {
  uint32_t size;

  /* Sends a message. After the result true, the callback (null: no answer is wanted) is called
   * exactly once, unless the engine ends first. After false it is not called. */
  bool (*Send)(_FlutterOstrelEngine* engine, const char* channel, const uint8_t* data,
               size_t data_size, FlutterOstrelReplyCallback callback, void* user_data);

  /* Sets the callback that receives the channel's messages in the place of an earlier one. Null:
   * the messages are not received any more. */
  void (*SetMessageHandler)(_FlutterOstrelEngine* engine, const char* channel,
                            FlutterOstrelMessageCallback callback, void* user_data);

  /* Calls the slot whenever the other side begins (true) or stops (false) to listen on the channel.
   * The present state is not told. Returns the subscription's id, or 0 on failure. */
  unsigned int (*ChannelUpdateSubscribe)(_FlutterOstrelEngine* engine, const char* channel,
                                         const FlutterOstrelBoolSlot* slot);

  /* Ends a subscription; an unknown id is ignored. */
  void (*ChannelUpdateUnsubscribe)(_FlutterOstrelEngine* engine, const char* channel,
                                   unsigned int id);
} FlutterOstrelMessengerProcTable;

/* ---- View ----------------------------------------------------------------------------------- */

/* The appearance that applications should have. The texts are borrowed until the chunk is unlocked
 * that was given to GetTheme. */
typedef struct FlutterOstrelTheme {
  uint32_t size;
  uint32_t flag; /* Non-zero: true. */
  uint32_t values[4];
  const char* texts[4];
} FlutterOstrelTheme;

/* The window and the device's state. */
typedef struct FlutterOstrelViewProcTable {
  uint32_t size;

  /* Store the handles of the graphics stack, or null when there is none. */
  void (*GetEGLConfig)(_FlutterOstrelView* view, void** config);
  void (*GetEGLDisplay)(_FlutterOstrelView* view, void** display);
  void (*GetNativeDisplay)(_FlutterOstrelView* view, void** display);
  void (*GetEGLGetProcAddress)(_FlutterOstrelView* view, void** function);
  void (*GetEGLContextHandle)(_FlutterOstrelView* view, void** context);
  void (*GetEGLOffscreenContextHandle)(_FlutterOstrelView* view, void** context);

  /* Returns the number of device pixels per logical pixel. */
  float (*GetDevicePixelRatio)(_FlutterOstrelView* view);

  /* The window's visibility, 1 to 5. For subscriptions, here and below: the slot is called whenever
   * the value has changed; Subscribe returns an id, or 0 on failure; Unsubscribe ignores an unknown
   * id. */
  uint32_t (*GetWindowVisibility)(_FlutterOstrelView* view);
  unsigned int (*WindowVisibilityChangedSubscribe)(_FlutterOstrelView* view,
                                                   const FlutterOstrelSlot* slot);
  void (*WindowVisibilityChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* Ask for a state of the window. The visibility's subscribers are called when it has changed. */
  void (*MaximizeWindow)(_FlutterOstrelView* view);
  void (*MinimizeWindow)(_FlutterOstrelView* view);

  /* The window's orientation in degrees: 0, 90, 180 or 270. */
  uint32_t (*GetWindowOrientation)(_FlutterOstrelView* view);
  unsigned int (*WindowOrientationChangedSubscribe)(_FlutterOstrelView* view,
                                                    const FlutterOstrelSlot* slot);
  void (*WindowOrientationChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* The window's size in pixels. */
  uint32_t (*GetWindowWidth)(_FlutterOstrelView* view);
  uint32_t (*GetWindowHeight)(_FlutterOstrelView* view);

  /* The device's orientation in degrees: 0, 90, 180 or 270. */
  uint32_t (*GetDeviceOrientation)(_FlutterOstrelView* view);
  unsigned int (*DeviceOrientationChangedSubscribe)(_FlutterOstrelView* view,
                                                    const FlutterOstrelSlot* slot);
  void (*DeviceOrientationChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* Whether the on-screen keyboard is shown. */
  bool (*IsKeyboardVisible)(_FlutterOstrelView* view);
  unsigned int (*KeyboardVisibilityChangedSubscribe)(_FlutterOstrelView* view,
                                                     const FlutterOstrelSlot* slot);
  void (*KeyboardVisibilityChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* The visibility of the status bar that the application asks for, 1 or 2 (0: none is asked for),
   * and whether the status bar is shown. SetStatusbarVisibility returns false when it refuses. */
  bool (*SetStatusbarVisibility)(_FlutterOstrelView* view, uint32_t visibility);
  uint32_t (*GetStatusbarVisibility)(_FlutterOstrelView* view);
  bool (*IsStatusbarVisible)(_FlutterOstrelView* view);

  /* Ask for the whole screen, and for the foreground. */
  void (*Fullscreen)(_FlutterOstrelView* view);
  void (*Activate)(_FlutterOstrelView* view);

  /* Whether the window draws its background. */
  bool (*IsBackgroundVisible)(_FlutterOstrelView* view);
  void (*SetBackgroundVisible)(_FlutterOstrelView* view, bool visible);

  /* The kind of window, 1 to 3. */
  uint32_t (*GetWindowType)(_FlutterOstrelView* view);

  /* LockResources opens a chunk and returns its id. Everything that is handed out for the chunk is
   * valid until UnlockResources, which ignores an unknown id. */
  uint32_t (*LockResources)(_FlutterOstrelView* view);
  void (*UnlockResources)(_FlutterOstrelView* view, uint32_t chunk_id);

  /* Fills the theme with texts of the chunk; zero on success. */
  uint32_t (*GetTheme)(_FlutterOstrelView* view, uint32_t chunk_id, FlutterOstrelTheme* theme,
                       uint32_t size);
  /* The theme's subscriptions, as those above. */
  unsigned int (*ThemeChangedSubscribe)(_FlutterOstrelView* view, const FlutterOstrelSlot* slot);
  void (*ThemeChangedUnsubscribe)(_FlutterOstrelView* view, unsigned int id);

  /* Describes the payload that the window was opened with, one value in the standard codec's
   * encoding; zero on success. The view is valid until the chunk is unlocked. */
  uint32_t (*GetWindowPayload)(_FlutterOstrelView* view, uint32_t chunk_id,
                               struct ForgeBufferView* payload, uint32_t size);

  /* Opens a popup window at a Dart entry point. The slot is called once, when the window is done. A
   * null slot: the answer does not matter. */
  void (*CreatePopupWindow)(_FlutterOstrelView* view, const char* entry_point, const char* text,
                            const uint8_t* payload, size_t payload_size,
                            const FlutterOstrelResultSlot* slot);

  /* Closes this window. `result`, one value in the standard codec's encoding, goes to the opener of
   * the window. */
  void (*CloseWindow)(_FlutterOstrelView* view, const uint8_t* result, size_t result_size);
} FlutterOstrelViewProcTable;

/* ---- Textures ------------------------------------------------------------------------------- */

/* A frame in memory: four bytes for each pixel, in the order red, green, blue, alpha; rows from the
 * top, without gaps. */
typedef struct FlutterOstrelPixelBuffer {
  uint32_t size;
  const uint8_t* pixels;
  size_t width; /* In pixels. */
  size_t height;
  void (*release)(void* user_data); /* Called when the pixels were copied; may be null. */
  void* user_data;
} FlutterOstrelPixelBuffer;

/* A frame that is a texture of OpenGL. */
typedef struct FlutterOstrelOpenGLTexture {
  uint32_t size;
  uint32_t target; /* For example GL_TEXTURE_2D. */
  uint32_t name;
  uint32_t format; /* For example GL_RGBA8. */
  size_t width;    /* In pixels. */
  size_t height;
  void (*release)(void* user_data); /* Called when the frame was drawn; may be null. */
  void* user_data;
} FlutterOstrelOpenGLTexture;

/* Returns a frame, or null when there is none. It may be called on the renderer's thread. The
 * arguments are the size, in pixels, at which the frame will be shown. The structure must stay
 * valid until the next call for the texture, or until the texture is gone. */
typedef const FlutterOstrelPixelBuffer* (*FlutterOstrelPixelBufferCallback)(size_t width,
                                                                            size_t height,
                                                                            void* user_data);
typedef const FlutterOstrelOpenGLTexture* (*FlutterOstrelOpenGLCallback)(size_t width,
                                                                         size_t height,
                                                                         void* user_data);

/* The kinds of textures. */
#define FLUTTER_OSTREL_PIXEL_BUFFER 0u
#define FLUTTER_OSTREL_OPENGL 1u

/* The callbacks that give a texture's frames. `user_data` is passed to each call. */
typedef struct FlutterOstrelPixelBufferSource {
  FlutterOstrelPixelBufferCallback callback;
  void* user_data;
} FlutterOstrelPixelBufferSource;

typedef struct FlutterOstrelOpenGLSource {
  uint32_t size;
  FlutterOstrelOpenGLCallback callback;
  void* user_data;
} FlutterOstrelOpenGLSource;

/* The description of a texture: its kind and the source of its frames. */
typedef struct FlutterOstrelTextureDescriptor {
  uint32_t kind; /* One of the two above; it tells which member of the union counts. */
  union {
    FlutterOstrelPixelBufferSource pixel_buffer;
    FlutterOstrelOpenGLSource opengl;
  } source;
} FlutterOstrelTextureDescriptor;

/* The textures of an engine. */
typedef struct FlutterOstrelTextureProcTable {
  uint32_t size;

  /* Returns the texture's id, or -1 on failure. The source's callback may be called until the
   * texture is gone. */
  int64_t (*RegisterTexture)(_FlutterOstrelEngine* engine,
                             const FlutterOstrelTextureDescriptor* descriptor);

  /* Ends the use of a texture. False: the id is unknown, and the callback is not called. True: the
   * callback (null: none) is called once, when the texture is gone. */
  bool (*UnregisterTexture)(_FlutterOstrelEngine* engine, int64_t texture_id,
                            void (*callback)(void* user_data), void* user_data);

  /* Tells the renderer that the texture has a new frame. False: the id is unknown. */
  bool (*MarkTextureFrameAvailable)(_FlutterOstrelEngine* engine, int64_t texture_id);
} FlutterOstrelTextureProcTable;

/* ---- The context ---------------------------------------------------------------------------- */

/* The context that a plug-in is registered with. The structure is borrowed until the registration
 * function returns; its functions stay valid until the engine is destroyed. */
typedef struct FlutterOstrelPluginContext {
  uint32_t size;
  _FlutterOstrelApplication* application;
  _FlutterOstrelEngine* engine;
  _FlutterOstrelView* view;

  /* Has the callback called when the engine is about to be destroyed. Within the callback the
   * engine's tables still work; afterwards they must not be used. */
  void (*EngineDestroyedSubscribe)(_FlutterOstrelEngine* engine,
                                   void (*callback)(_FlutterOstrelEngine* engine));

  /* Fill a table of `size` declared bytes; non-zero on success. */
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
 * is called once for each engine, on the embedder's thread, and returns non-zero when the plug-in
 * is ready. */
uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context);

#pragma GCC visibility pop

/* ---- The layout is fixed --------------------------------------------------------------------- */

/* The sizes are checked on 32-bit machines, as the devices are; other machines follow the same
 * rules. */
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
