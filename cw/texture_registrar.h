// Hands textures to the embedder's renderer.
//
//   cw::Texture texture = cw::PixelBufferTexture([&](size_t, size_t) { return &frame; });
//   const int64_t id = textures->RegisterTexture(&texture);
//   textures->MarkTextureFrameAvailable(id);  // The renderer asks for the frame.
//
// Threads: the embedder's. Frames may be asked for on the renderer's thread, one call at a time for
//          each texture (`tavo-embed --render-thread` does so).
// Errors:  an operation that the embedder does not offer fails. What a callback throws is an error
//          line.
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

// A source of frames: a function that is asked for one, at the size in pixels at which it will be
// shown. What it returns (null: no frame) stays valid until the next call, or until the texture is
// gone.
template <typename Frame>
class FrameSource {
 public:
  using Function = std::function<const Frame*(size_t width, size_t height)>;

  explicit FrameSource(Function function) : function_(std::move(function)) {}

  const Frame* GetFrame(size_t width, size_t height) const {
    return function_ ? function_(width, height) : nullptr;
  }

 private:
  Function function_;
};

// Pixels in memory.
class FORGE_EXPORT PixelBufferTexture final : public FrameSource<FlutterOstrelPixelBuffer> {
 public:
  using FrameSource::FrameSource;
};

// A texture of OpenGL.
class FORGE_EXPORT OpenGLTexture final : public FrameSource<FlutterOstrelOpenGLTexture> {
 public:
  using FrameSource::FrameSource;
};

using Texture = std::variant<PixelBufferTexture, OpenGLTexture>;

class FORGE_EXPORT TextureRegistrar {
 public:
  // Null when the context has no engine, or its table cannot be loaded.
  static std::unique_ptr<TextureRegistrar> Create(FlutterOstrelPluginContext* context);

  TextureRegistrar(const TextureRegistrar&) = delete;
  TextureRegistrar& operator=(const TextureRegistrar&) = delete;

  // Returns the texture's id, -1 on failure. The texture stays the caller's, and where it is, until
  // it is gone (see UnregisterTexture).
  int64_t RegisterTexture(Texture* texture);

  // False: the id is unknown.
  bool MarkTextureFrameAvailable(int64_t texture_id);

  // The callback (empty: none) is called once, when the texture is gone, also after the registrar's
  // end; it is dropped when the answer is false.
  bool UnregisterTexture(int64_t texture_id, std::function<void()> callback);

 private:
  using Table = FlutterOstrelTextureProcTable;

  TextureRegistrar(_FlutterOstrelEngine* engine, const Table& table)
      : engine_(engine), table_(table) {}

  _FlutterOstrelEngine* const engine_;
  const Table table_;
};

}  // namespace cw
