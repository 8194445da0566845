#include "cw/texture_registrar.h"

#include <iostream>

#include "cw/embedder_table.h"
#include "cw/one_shot_calls.h"
#include "forge/fence.h"

namespace cw {
namespace {

using PendingUnregistrations = details::OneShotCalls<>;

// The embedder calls this with the texture's address. The variant may hold the other kind by now.
template <typename Source, typename Frame>
const Frame* GetFrame(size_t width, size_t height, void* user_data) {
  const Frame* frame = nullptr;
  forge::Fence("texture frame", [&] {
    const auto* source = std::get_if<Source>(static_cast<const Texture*>(user_data));
    if (source) frame = source->GetFrame(width, height);
  });
  return frame;
}

void HandleUnregistered(void* user_data) {
  forge::Fence("texture unregistered", [&] {
    const auto callback = PendingUnregistrations::GetInstance().Take(user_data);
    if (callback) callback();
  });
}

// False when the texture is null, or holds neither kind.
bool Describe(Texture* texture, FlutterOstrelTextureDescriptor* descriptor) {
  if (std::get_if<PixelBufferTexture>(texture)) {
    descriptor->kind = FLUTTER_OSTREL_PIXEL_BUFFER;
    auto& source = descriptor->source.pixel_buffer;
    source.callback = GetFrame<PixelBufferTexture, FlutterOstrelPixelBuffer>;
    source.user_data = texture;
    return true;
  }
  if (std::get_if<OpenGLTexture>(texture)) {
    descriptor->kind = FLUTTER_OSTREL_OPENGL;
    auto& source = descriptor->source.opengl;
    source.size = sizeof(source);
    source.callback = GetFrame<OpenGLTexture, FlutterOstrelOpenGLTexture>;
    source.user_data = texture;
    return true;
  }
  return false;
}

}  // namespace

std::unique_ptr<TextureRegistrar> TextureRegistrar::Create(FlutterOstrelPluginContext* context) {
  Table table;
  if (!details::LoadTable(context, &FlutterOstrelPluginContext::engine,
                          &FlutterOstrelPluginContext::TextureProcTableLoad, &table)) {
    return nullptr;
  }
  return std::unique_ptr<TextureRegistrar>(new TextureRegistrar(context->engine, table));
}

int64_t TextureRegistrar::RegisterTexture(Texture* texture) {
  if (!forge::Set(table_, &Table::RegisterTexture)) return -1;
  FlutterOstrelTextureDescriptor descriptor{};
  if (!Describe(texture, &descriptor)) {
    std::cerr << "Attempting to register unknown texture variant." << std::endl;
    return -1;
  }
  return table_.RegisterTexture(engine_, &descriptor);
}

bool TextureRegistrar::MarkTextureFrameAvailable(int64_t texture_id) {
  // The test of the first entry is enough: both entries exist since the same version.
  if (!forge::Set(table_, &Table::RegisterTexture)) return false;
  return table_.MarkTextureFrameAvailable(engine_, texture_id);
}

bool TextureRegistrar::UnregisterTexture(int64_t texture_id, std::function<void()> callback) {
  if (!forge::Set(table_, &Table::UnregisterTexture)) return false;
  if (!callback) return table_.UnregisterTexture(engine_, texture_id, nullptr, nullptr);
  auto& pending = PendingUnregistrations::GetInstance();
  void* const number = pending.Add(std::move(callback), nullptr);
  const bool accepted = table_.UnregisterTexture(engine_, texture_id, HandleUnregistered, number);
  if (!accepted) pending.Take(number);
  return accepted;
}

}  // namespace cw
