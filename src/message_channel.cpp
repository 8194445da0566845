#include "src/message_channel.h"

#include <utility>

#include <QJsonObject>

#include "src/border.h"
#include "src/json_text.h"

namespace tavo::details {

MessageChannel::MessageChannel(std::shared_ptr<RuntimeManager::TaskMessaging> messaging,
                               Handler handler)
    : messaging_(std::move(messaging)) {
  auto receive = [reader = std::make_shared<JsonTextReader>(),
                  handler = std::move(handler)](const QJsonObject& message) {
    Fence("message handler", [&] {
      if (auto text = reader->Read(message)) handler(std::move(*text));
    });
  };
  connection_ = QObject::connect(messaging_.get(), &RuntimeManager::TaskMessaging::messageReceived,
                                 std::move(receive));
}

MessageChannel::~MessageChannel() { Close(); }

void MessageChannel::Send(std::string_view text) { messaging_->sendMessage(ToJson(text)); }

void MessageChannel::Close() {
  QObject::disconnect(connection_);
  messaging_->disconnect();
}

}  // namespace tavo::details
