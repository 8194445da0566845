// The registration of textures with the embedder's renderer.
//
//   cw::Texture texture = cw::PixelBufferTexture([&](size_t, size_t) { return &frame; });
//   const int64_t id = textures->RegisterTexture(&texture);
//   textures->MarkTextureFrameAvailable(id);  // The renderer asks for the frame.
//   textures->UnregisterTexture(id, [] { /* The texture and its frame may be destroyed now. */ });
//
// Threads:   the embedder's thread. Frames may be asked for, and the end of a texture may be told,
//            on the renderer's thread (`tavo-embed --render-thread` has one). Frames of one texture
//            are asked for one at a time.
// Ownership: the caller owns the textures and their frames. The registrar keeps no list of them:
//            its end unregisters nothing.
// Errors:    an operation that the embedder does not offer fails. An exception of a callback is an
//            error line; of a frame's function, it means that there is no frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <variant>

#include "forge/export.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace cw {

// A source of frames: a function that returns a frame for the size, in pixels, at which it will be
// shown. The function may return a frame of another size, or null when there is no frame. The frame
// must stay valid until the next call, or until the texture is gone.
template <typename Frame>
class FrameSource {
 public:
  using Function = std::function<const Frame*(size_t width, size_t height)>;

  // An empty function gives no frames.
  explicit FrameSource(Function function) : function_(std::move(function)) {}

  // Called for the renderer: returns the function's frame, or null.
  const Frame* GetFrame(size_t width, size_t height) const {
    return function_ ? function_(width, height) : nullptr;
  }

 private:
  Function function_;
};

// A texture whose frames are pixels in memory.
class FORGE_EXPORT PixelBufferTexture final : public FrameSource<FlutterOstrelPixelBuffer> {
 public:
  using FrameSource::FrameSource;
};

// A texture whose frames are textures of OpenGL.
class FORGE_EXPORT OpenGLTexture final : public FrameSource<FlutterOstrelOpenGLTexture> {
 public:
  using FrameSource::FrameSource;
};

// A texture of either kind. A registered texture that is assigned the other kind has no frames.
using Texture = std::variant<PixelBufferTexture, OpenGLTexture>;

// The textures of one engine.
class FORGE_EXPORT TextureRegistrar {
 public:
  // Returns null when the context is null, when it has no engine, or when the table cannot be
  // loaded.
  static std::unique_ptr<TextureRegistrar> Create(FlutterOstrelPluginContext* context);

  TextureRegistrar(const TextureRegistrar&) = delete;
  TextureRegistrar& operator=(const TextureRegistrar&) = delete;

  // Returns the texture's id, or -1 on failure. A null texture fails with a line on standard error.
  // The texture must stay alive, at the same address, until it is gone (see UnregisterTexture).
  int64_t RegisterTexture(Texture* texture);

  // Tells the renderer that the texture has a new frame. False when the id is unknown.
  bool MarkTextureFrameAvailable(int64_t texture_id);

  // Ends the use of a texture. Returns false, and drops the callback, when the id is unknown. After
  // true, the callback (empty: none) is called once, when the texture is gone. The call may come
  // within this operation or after the registrar's end.
  bool UnregisterTexture(int64_t texture_id, std::function<void()> callback);

 private:
  using Table = FlutterOstrelTextureProcTable;

  TextureRegistrar(_FlutterOstrelEngine* engine, const Table& table)
      : engine_(engine), table_(table) {}

  _FlutterOstrelEngine* const engine_;
  const Table table_;
};

}  // namespace cw
