// One codec for each serializer, made when it is first asked for and never destroyed.
//
// Threads: any; one mutex a kind of codec.
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
