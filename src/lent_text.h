// Texts that are lent to the caller's callbacks: each in a chunk that the caller gives back by its
// id.
//
// `reachable` tells whether the caller's handle still leads to the lender. If it does not, no chunk
// can be given back, so the text is freed right after its callback.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "forge/resources_cache.h"

namespace tavo::details {

// Calls callback(text, chunk id). False, without a call, when no chunk can be opened.
template <typename Callback, typename Reachable>
bool LendText(forge::ResourcesCache& cache, std::string&& text, Callback&& callback,
              Reachable&& reachable) {
  const uint32_t chunk_id = cache.CreateChunk();
  if (chunk_id == 0) return false;
  try {
    callback(cache.TakeStr(chunk_id, std::move(text)), chunk_id);
  } catch (...) {
    cache.RemoveChunkIfOpen(chunk_id);
    throw;
  }
  if (!reachable()) cache.RemoveChunkIfOpen(chunk_id);
  return true;
}

// Delivers the text of a message to the slots' OnMessage, if they have one.
template <typename Slots, typename Reachable>
void DeliverText(forge::ResourcesCache& cache, const std::shared_ptr<Slots>& slots,
                 std::string&& text, Reachable&& reachable) {
  if (!slots || !slots->HasOnMessage()) return;
  LendText(
      cache, std::move(text),
      [&slots](const char* lent, uint32_t chunk_id) { slots->OnMessage(lent, chunk_id); },
      reachable);
}

// Takes a chunk back. An unknown id is reported, unless the chunk was freed because the handle was
// released at the same time: the handle becomes unknown first.
template <typename Reachable>
void TakeBack(forge::ResourcesCache& cache, uint32_t chunk_id, Reachable&& reachable) {
  if (!cache.RemoveChunkIfOpen(chunk_id) && reachable()) cache.RemoveChunk(chunk_id);
}

}  // namespace tavo::details
