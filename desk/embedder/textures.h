// The textures that the plug-in has registered. Their frames are not shown: they are fetched, read
// and recorded.
//
// Threads: the embedder's. Frames are fetched there, or on a thread of their own if the description
//          says so, and are recorded on the embedder's thread.
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

  // Returns the id, or -1 when the descriptor has no callback.
  int64_t Register(const FlutterOstrelTextureDescriptor& descriptor);
  bool Unregister(int64_t id, void (*callback)(void* user_data), void* user_data);
  bool MarkFrameAvailable(int64_t id);
  void Close();  // Waits for a frame that is being fetched.

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
