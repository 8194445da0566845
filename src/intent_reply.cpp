#include "src/intent_reply.h"

#include <exception>
#include <utility>

#include "cw/encodable_value.h"
#include "flrpc/qt/utils.h"
#include "forge/fence.h"
#include "forge/logger.h"

namespace tavo::details {
namespace {

// The object that the bytes hold, or an empty one and an error line.
QJsonObject DecodeAnswer(const uint8_t* data, unsigned int length) {
  QJsonValue json;
  try {
    const auto value = cw::EncodableValue::Deserialize(data, length);
    if (flrpc::qt::EncodableToJson(value, json) && json.isObject()) return json.toObject();
  } catch (const std::exception&) {  // A count that no memory can hold.
  }
  FORGE_LOG(kError) << "Could not convert intent reply to a JSON object.";
  return {};
}

}  // namespace

IntentReply::IntentReply(Function function, PrivateTag)
    : Object(forge::IDispatcher::CreateEmpty()), function_(std::move(function)) {}

TAVOReplyIntentSlot IntentReply::Open(Function function) {
  const auto reply = Object::Create(std::move(function), PrivateTag{});
  std::atomic_store(&reply->self_, reply);
  return {sizeof(TAVOReplyIntentSlot), HandleReply, HandleRelease, reply->GetRef()};
}

void IntentReply::HandleReply(void* context, const uint8_t* data, unsigned int length) {
  forge::Fence("intent reply", [=] {
    if (const auto reply = FromRef(context)) reply->Answer(data, length);
  });
}

void IntentReply::HandleRelease(void* context) {
  forge::Fence("intent reply release", [=] {
    if (const auto reply = FromRef(context)) std::atomic_store(&reply->self_, {});
  });
}

void IntentReply::Answer(const uint8_t* data, unsigned int length) const {
  function_(DecodeAnswer(data, length));
}

}  // namespace tavo::details
