#include "forge/resources_cache.h"

#include <algorithm>

#include "forge/logger.h"
#include "forge/spare_texts.h"

namespace forge {

uint32_t ResourcesCache::CreateChunk() {
  const std::lock_guard lock(mutex_);
  Chunk* chunk = FindChunkUnsafe(0);
  if (!chunk && chunks_.size() >= kMaxChunks) {
    FORGE_LOG(kError) << "Too many open chunks: " << kMaxChunks << ".";
    return 0;
  }
  if (!chunk) chunk = &chunks_.emplace_back();
  uint32_t id = DrawId();
  while (FindChunkUnsafe(id)) id = DrawId();  // Possible after the counter has wrapped.
  chunk->id = id;
  return id;
}

const char* ResourcesCache::AppendStr(uint32_t chunk_id, std::string_view text) {
  const std::lock_guard lock(mutex_);
  Chunk* chunk = GetChunkUnsafe(chunk_id);
  return chunk ? chunk->texts.emplace_back(text).c_str() : nullptr;
}

const char* ResourcesCache::TakeStr(uint32_t chunk_id, std::string&& text) {
  const std::lock_guard lock(mutex_);
  Chunk* chunk = GetChunkUnsafe(chunk_id);
  return chunk ? chunk->texts.emplace_back(std::move(text)).c_str() : nullptr;
}

std::pair<const char*, const char*> ResourcesCache::AppendStr(uint32_t chunk_id,
                                                              std::string_view first,
                                                              std::string_view second) {
  const std::lock_guard lock(mutex_);
  Chunk* chunk = GetChunkUnsafe(chunk_id);
  if (!chunk) return {nullptr, nullptr};
  const char* first_copy = chunk->texts.emplace_back(first).c_str();
  return {first_copy, chunk->texts.emplace_back(second).c_str()};
}

bool ResourcesCache::AppendBuffer(uint32_t chunk_id, Buffer&& buffer, ForgeBufferView* view,
                                  uint32_t size) {
  if (!view) {
    FORGE_LOG(kError) << "AppendBuffer: output structure pointer is null";
    return false;
  }
  const std::lock_guard lock(mutex_);
  Chunk* chunk = GetChunkUnsafe(chunk_id);
  if (!chunk) return false;
  chunk->buffers.push_back(std::move(buffer));
  return chunk->buffers.back().ToCAPI(view, size) == FORGE_RESULT_OK;
}

void ResourcesCache::RemoveChunk(uint32_t chunk_id) {
  const std::lock_guard lock(mutex_);
  RemoveUnsafe(GetChunkUnsafe(chunk_id));
}

bool ResourcesCache::RemoveChunkIfOpen(uint32_t chunk_id) {
  const std::lock_guard lock(mutex_);
  Chunk* chunk = chunk_id == 0 ? nullptr : FindChunkUnsafe(chunk_id);
  RemoveUnsafe(chunk);
  return chunk != nullptr;
}

ResourcesCache::Chunk* ResourcesCache::FindChunkUnsafe(uint32_t chunk_id) {
  const auto found = std::find_if(chunks_.begin(), chunks_.end(),
                                  [chunk_id](const Chunk& chunk) { return chunk.id == chunk_id; });
  return found == chunks_.end() ? nullptr : &*found;
}

ResourcesCache::Chunk* ResourcesCache::GetChunkUnsafe(uint32_t chunk_id) {
  Chunk* chunk = chunk_id == 0 ? nullptr : FindChunkUnsafe(chunk_id);
  if (!chunk) FORGE_LOG(kError) << "Invalid chunk ID <" << chunk_id << ">";
  return chunk;
}

void ResourcesCache::RemoveUnsafe(Chunk* chunk) {
  if (!chunk) return;
  for (std::string& text : chunk->texts) SpareTexts::Get().Keep(std::move(text));
  *chunk = Chunk{};  // The slot stays for reuse.
}

ResourcesCacheGuard::ResourcesCacheGuard(ResourcesCache& cache)
    : cache_(cache), chunk_id_(cache.CreateChunk()) {}

ResourcesCacheGuard::~ResourcesCacheGuard() {
  if (chunk_id_ != 0) cache_.RemoveChunk(chunk_id_);
}

const char* ResourcesCacheGuard::AppendStr(std::string_view text) {
  return cache_.AppendStr(chunk_id_, text);
}

std::pair<const char*, const char*> ResourcesCacheGuard::AppendStr(std::string_view first,
                                                                   std::string_view second) {
  return cache_.AppendStr(chunk_id_, first, second);
}

bool ResourcesCacheGuard::AppendBuffer(Buffer&& buffer, ForgeBufferView* view, uint32_t size) {
  return cache_.AppendBuffer(chunk_id_, std::move(buffer), view, size);
}

}  // namespace forge
