#include "desk/embedder/textures.h"

#include <memory>
#include <utility>

#include <QByteArray>
#include <QCryptographicHash>

#include "desk/embedder/engine.h"
#include "desk/embedder/render_thread.h"
#include "forge/proc_table.h"

namespace desk {
namespace {

// Calls a release function when the last copy is dropped.
using Release = std::shared_ptr<void>;
Release MakeRelease(void (*callback)(void* user_data), void* user_data) {
  return {nullptr, [callback, user_data](void*) {
            if (callback) callback(user_data);
          }};
}

// 0 when the buffer has no pixels, or more than can exist.
size_t CountBytes(const FlutterOstrelPixelBuffer& buffer) {
  size_t pixels = 0;
  size_t bytes = 0;
  const bool too_many = __builtin_mul_overflow(buffer.width, buffer.height, &pixels) ||
                        __builtin_mul_overflow(pixels, size_t{4}, &bytes);
  return too_many || !buffer.pixels ? 0 : bytes;
}

std::string Digest(const uint8_t* data, size_t size) {
  QCryptographicHash hash(QCryptographicHash::Sha256);
  constexpr size_t kChunk = size_t{1} << 30;  // Qt counts in int.
  for (size_t done = 0; done < size; done += kChunk) {
    hash.addData(reinterpret_cast<const char*>(data + done),
                 static_cast<int>(std::min(kChunk, size - done)));
  }
  return hash.result().toHex().toStdString();
}

FlutterOstrelOpenGLTexture CopyOpenGL(const FlutterOstrelOpenGLTexture& frame) {
  using Frame = FlutterOstrelOpenGLTexture;
  return {frame.size,
          forge::GetReached(frame, &Frame::target),
          forge::GetReached(frame, &Frame::name),
          forge::GetReached(frame, &Frame::format),
          forge::GetReached(frame, &Frame::width),
          forge::GetReached(frame, &Frame::height),
          forge::GetReached(frame, &Frame::release),
          forge::GetReached(frame, &Frame::user_data)};
}

}  // namespace

Textures::Textures(Engine& engine) : engine_(engine) {
  if (engine.description.render_thread) render_thread_ = std::make_unique<RenderThread>();
}

Textures::~Textures() = default;

void Textures::Close() {
  render_thread_.reset();
  textures_.clear();
}

int64_t Textures::Register(const FlutterOstrelTextureDescriptor& descriptor) {
  Texture texture{};
  if (descriptor.kind == FLUTTER_OSTREL_PIXEL_BUFFER) {
    texture.get_pixels = descriptor.source.pixel_buffer.callback;
    texture.user_data = descriptor.source.pixel_buffer.user_data;
  } else if (descriptor.kind == FLUTTER_OSTREL_OPENGL) {
    const auto source = forge::CopyCovered(&descriptor.source.opengl);
    texture.get_texture = source.callback;
    texture.user_data = source.user_data;
  }
  if (!texture.get_pixels && !texture.get_texture) return -1;
  textures_[++last_id_] = texture;
  return last_id_;
}

bool Textures::Unregister(int64_t id, void (*callback)(void* user_data), void* user_data) {
  if (textures_.erase(id) == 0) return false;
  // Also called when the engine ends before the tasks run: the texture is gone then, too.
  const auto queue = engine_.runner.GetQueue();
  TaskQueue::Task let_go = [release = MakeRelease(callback, user_data)] {};
  if (!render_thread_) {
    queue->Post(std::move(let_go));
  } else {  // After the frames that are still to be fetched.
    render_thread_->Post(
        [queue, let_go = std::move(let_go)]() mutable { queue->Post(std::move(let_go)); });
  }
  return true;
}

bool Textures::MarkFrameAvailable(int64_t id) {
  if (textures_.count(id) == 0) return false;
  engine_.runner.GetQueue()->Post([this, id] { Fetch(id); });
  return true;
}

void Textures::Fetch(int64_t id) {
  const auto found = textures_.find(id);
  if (found == textures_.end()) return;
  const View& view = engine_.window.GetView();
  TaskQueue::Task fetch = [this, id, texture = found->second, width = view.width,
                           height = view.height] {
    if (texture.get_pixels) {
      FetchPixels(texture, id, width, height);
    } else {
      FetchOpenGL(texture, id, width, height);
    }
  };
  if (!render_thread_) return fetch();
  render_thread_->Post(std::move(fetch));
}

void Textures::Record(const char* action, cw::EncodableMap details) {
  if (!render_thread_) return engine_.actions.Record(action, std::move(details));
  engine_.runner.GetQueue()->Post([this, action, details = std::move(details)]() mutable {
    engine_.actions.Record(action, std::move(details));
  });
}

void Textures::FetchPixels(const Texture& texture, int64_t id, size_t width, size_t height) {
  cw::EncodableMap details{{"texture", id}};
  const auto* lent = texture.get_pixels(width, height, texture.user_data);
  const auto frame = forge::CopyCovered(lent);
  const Release release = MakeRelease(frame.release, frame.user_data);
  const size_t bytes = CountBytes(frame);
  if (bytes == 0) return Record("NoFrame", std::move(details));
  details["width"] = ToValue(frame.width);
  details["height"] = ToValue(frame.height);
  details["bytes"] = ToValue(bytes);
  details["sha256"] = Digest(frame.pixels, bytes);
  Record("Frame", std::move(details));
}

void Textures::FetchOpenGL(const Texture& texture, int64_t id, size_t width, size_t height) {
  cw::EncodableMap details{{"texture", id}};
  const auto* lent = texture.get_texture(width, height, texture.user_data);
  if (!lent) return Record("NoFrame", std::move(details));
  const auto frame = CopyOpenGL(*lent);
  const Release release = MakeRelease(frame.release, frame.user_data);
  details["width"] = ToValue(frame.width);
  details["height"] = ToValue(frame.height);
  details["target"] = ToValue(size_t{frame.target});
  details["name"] = ToValue(size_t{frame.name});
  details["format"] = ToValue(size_t{frame.format});
  Record("Frame", std::move(details));
}

}  // namespace desk
