#include "src/intent_reply.h"

#include <exception>
#include <utility>

#include "cw/admission.h"
#include "cw/encodable_value.h"
#include "flrpc/qt/utils.h"
#include "forge/fence.h"
#include "forge/logger.h"

namespace tavo::details {
namespace {

// Returns the JSON object of the bytes, or an empty object and an error line.
QJsonObject DecodeAnswer(const uint8_t* data, unsigned int length) {
  QJsonValue json;
  try {
    if (!cw::FindInadmissible(data, length) &&
        flrpc::qt::EncodableToJson(cw::EncodableValue::Deserialize(data, length), json) &&
        json.isObject()) {
      return json.toObject();
    }
  } catch (const std::exception&) {  // There is no memory for the object.
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
