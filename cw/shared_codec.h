// One codec for each serializer. The first request makes it, and it is never destroyed.
//
// Threads: any; each kind of codec has one mutex.
#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "cw/standard_codec_serializer.h"

namespace cw::details {

template <typename Codec>
const Codec& GetSharedCodec(const StandardCodecSerializer* serializer) {
  static auto& mutex = *new std::mutex;
  static auto& codecs = *new std::map<const StandardCodecSerializer*, std::unique_ptr<Codec>>;
  if (!serializer) serializer = &StandardCodecSerializer::GetInstance();
  const std::lock_guard lock(mutex);
  auto& codec = codecs[serializer];
  if (!codec) codec.reset(new Codec(serializer));
  return *codec;
}

}  // namespace cw::details
