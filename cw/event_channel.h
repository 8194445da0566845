// A stream of events on a named channel, which the other side opens ("listen") and closes
// ("cancel").
//
//   cw::EventChannel<> channel(registrar->GetMessenger(), "battery");
//   channel.SetHandler(
//       [this](const cw::EncodableValue* arguments, cw::EventSink<> events) {
//         events_ = std::move(events);                    // Later: events_.Success(level);
//         return std::optional<cw::StreamError<>>();      // The stream is open.
//       },
//       [this](const cw::EncodableValue*) { events_ = {}; });
//
// A channel has at most one open stream. A "listen" while a stream is open closes that stream
// first, as a "cancel" without arguments does. A "cancel" without a stream is answered with the
// error "error".
//
// Threads:   the embedder's thread, where the handlers run too.
// Ownership: the messenger and the codec must outlive the channel. The channel keeps the handlers;
//            a handler that runs lives until its call returns. Sinks may be copied and kept for any
//            time: a sink does nothing once its stream was cancelled or has ended, or its channel
//            has got other handlers or was destroyed.
// Errors:    an exception of a handler is answered "not implemented" and is an error line. When it
//            comes from OnListen, the stream is refused. An event that cannot be encoded throws as
//            the codec does and is not sent.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "cw/binary_messenger.h"
#include "cw/encodable_value.h"
#include "cw/method_channel.h"

namespace cw {

// The reason why a stream cannot be opened: what OnListen returns and the other side receives.
template <typename T = EncodableValue>
struct StreamError {
  std::string code;          // A name that the other side recognises.
  std::string message;       // A text for people; may be empty.
  std::optional<T> details;  // Further data of any kind.
};

namespace details {

// The state of one stream, shared by its sinks and its channel.
template <typename T>
struct Stream {
  BinaryMessenger* messenger;  // Null once the stream is closed.
  std::string channel;
  const MethodCodec<T>* codec;
};

}  // namespace details

// The plug-in's end of one stream. All copies of a sink are of the same stream.
template <typename T = EncodableValue>
class EventSink {
 public:
  EventSink() = default;  // A sink without a stream does nothing.

  // Used by the channel.
  explicit EventSink(std::shared_ptr<details::Stream<T>> stream) : stream_(std::move(stream)) {}

  // Returns whether events are still sent: the other side listens, and the stream has not ended.
  bool IsOpen() const { return stream_ && stream_->messenger; }

  // Sends an event. Without an open stream it does nothing.
  void Success(const T& event) {
    if (IsOpen()) Send(stream_->codec->EncodeSuccessEnvelope(&event));
  }

  // Sends an error event; the stream stays open. Null `details`: the error has none.
  void Error(const std::string& code, const std::string& message = {}, const T* details = nullptr) {
    if (IsOpen()) Send(stream_->codec->EncodeErrorEnvelope(code, message, details));
  }

  // Sends the end of the stream. The stream stays known until the other side cancels it, which
  // calls OnCancel. A second call does nothing.
  void End() {
    if (!IsOpen()) return;
    const auto stream = stream_;  // The embedder may drop this sink within the call.
    auto* const messenger = std::exchange(stream->messenger, nullptr);
    messenger->Send(stream->channel, nullptr, 0, nullptr);
  }

 private:
  void Send(const forge::Buffer& envelope) {
    const auto stream = stream_;  // The embedder may drop this sink within the call.
    stream->messenger->Send(stream->channel, envelope.GetData(), envelope.GetSize(), nullptr);
  }

  std::shared_ptr<details::Stream<T>> stream_;
};

namespace details {

// The handlers and the open stream of one channel. A running call shares this object, so a handler
// may destroy the channel.
template <typename T>
class StreamCalls {
 public:
  using OnListen = std::function<std::optional<StreamError<T>>(const T* arguments, EventSink<T>)>;
  using OnCancel = std::function<void(const T* arguments)>;

  // `on_listen` must not be empty.
  StreamCalls(const Stream<T>& initial, OnListen on_listen, OnCancel on_cancel)
      : initial_(initial), on_listen_(std::move(on_listen)), on_cancel_(std::move(on_cancel)) {}

  // Answers "listen" and "cancel"; any other method is "not implemented".
  void Handle(const MethodCall<T>& call, MethodResult<T>* result) {
    if (call.GetMethodName() == "listen") return Listen(call.GetArguments(), result);
    if (call.GetMethodName() == "cancel") return Cancel(call.GetArguments(), result);
    result->NotImplemented();
  }

  // Closes the stream for good, without calling OnCancel; its sinks do nothing afterwards.
  void End() {
    has_ended_ = true;
    Close();
  }

 private:
  void Close() {
    if (stream_) std::exchange(stream_, nullptr)->messenger = nullptr;
  }

  // Opens a stream. An open one is closed first, as by "cancel" without arguments.
  void Listen(const T* arguments, MethodResult<T>* result) {
    if (stream_) TellCancel(nullptr);
    if (has_ended_) return result->NotImplemented();  // Cancelling ended the channel.
    const auto stream = std::make_shared<Stream<T>>(initial_);
    stream_ = stream;
    std::optional<StreamError<T>> error;
    try {
      error = on_listen_(arguments, EventSink<T>(stream));
    } catch (...) {
      Refuse(stream);
      throw;
    }
    if (!error) return result->Success();
    Refuse(stream);
    result->Error(error->code, error->message, error->details ? &*error->details : nullptr);
  }

  void Cancel(const T* arguments, MethodResult<T>* result) {
    if (!stream_) return result->Error("error", "No active stream to cancel.");
    TellCancel(arguments);
    result->Success();
  }

  // Closes the stream before OnCancel is called: its sinks are closed within the callback.
  void TellCancel(const T* arguments) {
    Close();
    if (on_cancel_) on_cancel_(arguments);
  }

  // A handler may have opened another stream by now, which stays.
  void Refuse(const std::shared_ptr<Stream<T>>& stream) {
    stream->messenger = nullptr;
    if (stream_ == stream) stream_ = nullptr;
  }

  const Stream<T> initial_;  // The state that each stream begins with.
  const OnListen on_listen_;
  const OnCancel on_cancel_;
  std::shared_ptr<Stream<T>> stream_;  // From "listen" to "cancel", even when the stream has ended.
  bool has_ended_ = false;
};

}  // namespace details

// The plug-in's end of one channel. For each name there should be one channel: channels of the same
// name replace each other's handlers, and the end of any removes them.
template <typename T = EncodableValue>
class EventChannel {
 public:
  // Called when the other side opens a stream, with the call's arguments (null: none; the standard
  // codec gives the null value instead) and the sink. A returned error refuses the stream, closes
  // the sink and answers the other side.
  using OnListen = typename details::StreamCalls<T>::OnListen;

  // Called when the other side closes the stream (also one that has ended), with its arguments, and
  // when it opens the stream anew, with null. It is not called when the channel ends.
  using OnCancel = typename details::StreamCalls<T>::OnCancel;

  // A null messenger makes a channel that never gets a stream. The codec must not be null.
  EventChannel(BinaryMessenger* messenger, std::string name,
               const MethodCodec<T>* codec = &StandardMethodCodec::GetInstance())
      : messenger_(messenger), codec_(codec), calls_(messenger, std::move(name), codec) {}
  ~EventChannel() { Close(); }  // Removes the handlers; OnCancel is not called.
  EventChannel(const EventChannel&) = delete;
  EventChannel& operator=(const EventChannel&) = delete;

  // Sets the channel's handlers in the place of earlier ones. An open stream is closed first:
  // neither the other side nor OnCancel is told. An empty `on_listen` removes the handlers. An
  // empty `on_cancel` is not called.
  void SetHandler(OnListen on_listen, OnCancel on_cancel = nullptr) {
    Close();
    if (!on_listen) return calls_.SetHandler(nullptr);
    streams_ = std::make_shared<details::StreamCalls<T>>(
        details::Stream<T>{messenger_, calls_.GetName(), codec_}, std::move(on_listen),
        std::move(on_cancel));
    calls_.SetHandler(
        [streams = streams_](const MethodCall<T>& call, std::unique_ptr<MethodResult<T>> result) {
          streams->Handle(call, result.get());
        });
  }

 private:
  void Close() {
    if (streams_) streams_->End();
  }

  BinaryMessenger* const messenger_;
  const MethodCodec<T>* const codec_;
  std::shared_ptr<details::StreamCalls<T>> streams_;
  MethodChannel<T> calls_;
};

}  // namespace cw
