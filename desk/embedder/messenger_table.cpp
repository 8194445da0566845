#include "desk/embedder/engine.h"
#include "desk/embedder/tables.h"

namespace desk {
namespace {

using Handle = _FlutterOstrelEngine;

bool Send(Handle* handle, const char* channel, const uint8_t* data, size_t data_size,
          FlutterOstrelReplyCallback callback, void* user_data) {
  return With(handle, false, [&](Engine& engine) {
    if (!channel) return false;
    engine.messenger.Send(channel, data, data ? data_size : 0, callback, user_data);
    return true;
  });
}

void SetMessageHandler(Handle* handle, const char* channel, FlutterOstrelMessageCallback callback,
                       void* user_data) {
  With(handle, [&](Engine& engine) {
    if (channel) engine.messenger.SetHandler(channel, callback, user_data);
  });
}

unsigned int ChannelUpdateSubscribe(Handle* handle, const char* channel,
                                    const FlutterOstrelBoolSlot* slot) {
  return With(handle, 0U, [&, taken = TakeSlot(slot)](Engine& engine) {
    return channel ? engine.messenger.Subscribe(channel, taken) : 0U;
  });
}

void ChannelUpdateUnsubscribe(Handle* handle, const char* channel, unsigned int id) {
  With(handle, [&](Engine& engine) {
    if (channel) engine.messenger.Unsubscribe(channel, id);
  });
}

}  // namespace

const FlutterOstrelMessengerProcTable kMessengerTable = {
    sizeof(FlutterOstrelMessengerProcTable),
    Send,
    SetMessageHandler,
    ChannelUpdateSubscribe,
    ChannelUpdateUnsubscribe,
};

}  // namespace desk
