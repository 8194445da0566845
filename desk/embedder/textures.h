// The textures that the plug-in registered. Nothing shows them: their frames are fetched, read and
// recorded.
//
// Threads: the embedder's. Frames are fetched there or, as the description says, on a thread of
//          their own, and recorded on the embedder's.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "cw/encodable_value.h"
#include "desk/embedder/task_queue.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {

struct Engine;
class RenderThread;

class Textures {
 public:
  explicit Textures(Engine& engine);
  ~Textures();

  int64_t Register(const FlutterOstrelTextureDescriptor& descriptor);  // -1: it is of no use.
  bool Unregister(int64_t id, void (*callback)(void* user_data), void* user_data);
  bool MarkFrameAvailable(int64_t id);
  void Close();  // A frame that is being fetched is waited for.

 private:
  struct Texture {
    FlutterOstrelPixelBufferCallback get_pixels;  // One of the two is null.
    FlutterOstrelOpenGLCallback get_texture;
    void* user_data;
  };

  void Fetch(int64_t id);
  void Record(const char* action, cw::EncodableMap details);
  void FetchPixels(const Texture& texture, int64_t id, size_t width, size_t height);
  void FetchOpenGL(const Texture& texture, int64_t id, size_t width, size_t height);

  Engine& engine_;
  std::unique_ptr<RenderThread> render_thread_;  // Null: the embedder's thread renders.
  std::map<int64_t, Texture> textures_;
  int64_t last_id_ = 0;
};

}  // namespace desk
