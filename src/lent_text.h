// Texts that are lent to the caller's callbacks: each in a chunk that the caller gives back by its
// id.
//
// `reachable` tells whether the caller's handle still leads to the lender. If it does not, no chunk
// can be given back, so the text is freed right after its callback.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include <QJsonObject>

#include "forge/resources_cache.h"
#include "src/message_channel.h"

namespace tavo::details {

// Calls callback(text, chunk id) with a copy. False, without a call, when no chunk can be opened.
template <typename Callback, typename Reachable>
bool LendText(forge::ResourcesCache& cache, std::string_view text, Callback&& callback,
              Reachable&& reachable) {
  const uint32_t chunk_id = cache.CreateChunk();
  if (chunk_id == 0) return false;
  try {
    callback(cache.AppendStr(chunk_id, text), chunk_id);
  } catch (...) {
    cache.RemoveChunkIfOpen(chunk_id);
    throw;
  }
  if (!reachable()) cache.RemoveChunkIfOpen(chunk_id);
  return true;
}

// Delivers the text of a message, if it has one, to the slots' OnMessage, if they have one.
template <typename Slots, typename Reachable>
void DeliverMessage(forge::ResourcesCache& cache, const std::shared_ptr<Slots>& slots,
                    const QJsonObject& message, Reachable&& reachable) {
  const auto text = MessageChannel::TextOf(message);
  if (!text || !slots || !slots->HasOnMessage()) return;
  LendText(
      cache, {text->constData(), static_cast<std::size_t>(text->size())},
      [&slots](const char* copy, uint32_t chunk_id) { slots->OnMessage(copy, chunk_id); },
      reachable);
}

// Takes a chunk back. An unknown id is reported, unless the chunk was freed because the handle was
// released at the same time: the handle becomes unknown first.
template <typename Reachable>
void TakeBack(forge::ResourcesCache& cache, uint32_t chunk_id, Reachable&& reachable) {
  if (!cache.RemoveChunkIfOpen(chunk_id) && reachable()) cache.RemoveChunk(chunk_id);
}

}  // namespace tavo::details
