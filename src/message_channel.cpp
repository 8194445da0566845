#include "src/message_channel.h"

#include <limits>
#include <stdexcept>
#include <utility>

#include <QString>

#include "src/border.h"

namespace tavo::details {
namespace {

QString DataKey() { return QStringLiteral("data"); }

// A separate function, so that the copies that Qt makes are freed before the message is sent.
QJsonObject ToMessage(std::string_view text) {
  QJsonObject message;
  message.insert(DataKey(), QString::fromUtf8(text.data(), static_cast<int>(text.size())));
  return message;
}

}  // namespace

MessageChannel::MessageChannel(std::shared_ptr<RuntimeManager::TaskMessaging> messaging,
                               Handler handler)
    : messaging_(std::move(messaging)) {
  connection_ =
      QObject::connect(messaging_.get(), &RuntimeManager::TaskMessaging::messageReceived,
                       [handler = std::move(handler)](const QJsonObject& message) {
                         Fence("message handler", [&handler, &message] { handler(message); });
                       });
}

MessageChannel::~MessageChannel() { Close(); }

void MessageChannel::Send(std::string_view text) {
  if (text.size() > std::numeric_limits<int>::max()) throw std::length_error("text is too long");
  messaging_->sendMessage(ToMessage(text));
}

void MessageChannel::Close() {
  QObject::disconnect(connection_);
  messaging_->disconnect();
}

std::optional<QByteArray> MessageChannel::TextOf(const QJsonObject& message) {
  const QJsonValue data = message.value(DataKey());
  if (!data.isString()) return std::nullopt;
  return data.toString().toUtf8();
}

}  // namespace tavo::details
