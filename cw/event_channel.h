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
// Ownership: the messenger and the codec outlive the channel. Sinks may be copied and kept; those
// of
//            a stream that was cancelled, has ended or lost its channel do nothing.
// Threads:   the embedder's.
// Errors:    an exception of a handler is answered "not implemented" and is an error line.
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

// Why a stream cannot be opened.
template <typename T = EncodableValue>
struct StreamError {
  std::string code;
  std::string message;
  std::optional<T> details;
};

namespace details {

// One stream, shared by its sinks and its channel.
template <typename T>
struct Stream {
  BinaryMessenger* messenger;  // Null once the stream is closed.
  std::string channel;
  const MethodCodec<T>* codec;
};

}  // namespace details

// The plug-in's end of one stream.
template <typename T = EncodableValue>
class EventSink {
 public:
  EventSink() = default;  // Of no stream: it does nothing.
  explicit EventSink(std::shared_ptr<details::Stream<T>> stream) : stream_(std::move(stream)) {}

  // Is there still somebody who listens?
  bool IsOpen() const { return stream_ && stream_->messenger; }

  // Sends an event; a stream goes on after an error.
  void Success(const T& event) {
    if (IsOpen()) Send(stream_->codec->EncodeSuccessEnvelope(&event));
  }
  void Error(const std::string& code, const std::string& message = {}, const T* details = nullptr) {
    if (IsOpen()) Send(stream_->codec->EncodeErrorEnvelope(code, message, details));
  }

  // Ends the stream. The other side still cancels it afterwards.
  void End() {
    if (!IsOpen()) return;
    auto* const messenger = std::exchange(stream_->messenger, nullptr);
    messenger->Send(stream_->channel, nullptr, 0, nullptr);
  }

 private:
  void Send(const forge::Buffer& envelope) {
    stream_->messenger->Send(stream_->channel, envelope.GetData(), envelope.GetSize(), nullptr);
  }

  std::shared_ptr<details::Stream<T>> stream_;
};

namespace details {

// The streams of one channel. A call that runs shares it, so a handler may end the channel.
template <typename T>
class StreamCalls {
 public:
  using OnListen = std::function<std::optional<StreamError<T>>(const T* arguments, EventSink<T>)>;
  using OnCancel = std::function<void(const T* arguments)>;

  StreamCalls(const Stream<T>& initial, OnListen on_listen, OnCancel on_cancel)
      : initial_(initial), on_listen_(std::move(on_listen)), on_cancel_(std::move(on_cancel)) {}

  void Handle(const MethodCall<T>& call, MethodResult<T>* result) {
    if (call.GetMethodName() == "listen") return Listen(call.GetArguments(), result);
    if (call.GetMethodName() == "cancel") return Cancel(call.GetArguments(), result);
    result->NotImplemented();
  }

  void Close() {
    if (stream_) std::exchange(stream_, nullptr)->messenger = nullptr;
  }

 private:
  void Listen(const T* arguments, MethodResult<T>* result) {
    if (stream_) TellCancel(nullptr);
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

  void TellCancel(const T* arguments) {
    Close();
    if (on_cancel_) on_cancel_(arguments);
  }

  void Refuse(const std::shared_ptr<Stream<T>>& stream) {
    stream->messenger = nullptr;
    if (stream_ == stream) stream_ = nullptr;
  }

  const Stream<T> initial_;  // What each stream begins with.
  const OnListen on_listen_;
  const OnCancel on_cancel_;
  std::shared_ptr<Stream<T>> stream_;  // Until it is cancelled, also after its end.
};

}  // namespace details

template <typename T = EncodableValue>
class EventChannel {
 public:
  // Called when a stream is opened, with its arguments (null: none). An error that is returned
  // refuses the stream.
  using OnListen = typename details::StreamCalls<T>::OnListen;
  // Called when the other side closes the stream, also one that has ended, or opens it anew.
  using OnCancel = typename details::StreamCalls<T>::OnCancel;

  EventChannel(BinaryMessenger* messenger, std::string name,
               const MethodCodec<T>* codec = &StandardMethodCodec::GetInstance())
      : messenger_(messenger), codec_(codec), calls_(messenger, std::move(name), codec) {}
  ~EventChannel() { Close(); }
  EventChannel(const EventChannel&) = delete;
  EventChannel& operator=(const EventChannel&) = delete;

  // The channel's handlers. An open stream is closed first, without a word to the other side; an
  // empty `on_listen` removes the handlers.
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
    if (streams_) streams_->Close();
  }

  BinaryMessenger* const messenger_;
  const MethodCodec<T>* const codec_;
  std::shared_ptr<details::StreamCalls<T>> streams_;
  MethodChannel<T> calls_;
};

}  // namespace cw
