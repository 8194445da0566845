// Method calls on a named channel, in both directions.
//
//   cw::MethodChannel<> channel(registrar->GetMessenger(), "clock");
//   channel.SetHandler([](const auto& call, auto result) {
//     if (call.GetMethodName() != "now") return result->NotImplemented();
//     result->Success(static_cast<int64_t>(std::time(nullptr)));
//   });
//
//   channel.Invoke("alarm", cw::EncodableValue("07:00"));
//
// The handler owns the result and may answer later. Each call is answered exactly once. A result
// that is destroyed without an answer (for example because the handler threw) answers "not
// implemented", and a second answer is refused with a line on standard error. Bytes that are no
// method call are answered "not implemented" without the handler.
//
// Threads:   the embedder's thread, where handlers and results run too.
// Ownership: the messenger must outlive the channel. The codec must outlive the channel, every
//            result that a handler keeps, and every call that waits for its answer. The channel's
//            destructor removes the handler; a handler that runs lives until its call returns.
//            Results that are kept longer than the channel still answer.
// Errors:    a call or an answer that cannot be encoded throws as the codec does. Such a call is
//            not sent. Such an answer leaves its result unanswered. An exception of a handler or of
//            a result is an error line.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "cw/binary_messenger.h"
#include "cw/encodable_value.h"
#include "cw/method_codec.h"
#include "cw/reply_manager.h"
#include "cw/standard_method_codec.h"

namespace cw {
namespace details {

// The result that a handler receives: it answers the call through the message that brought it.
template <typename T>
class ChannelResult final : public MethodResult<T> {
 public:
  // `reply` must not be empty.
  ChannelResult(BinaryReply reply, const MethodCodec<T>* codec)
      : reply_(std::move(reply)), codec_(codec) {}
  // Without an answer so far, the call is answered "not implemented".
  ~ChannelResult() override {
    if (!is_answered_) reply_.SendResponseData(nullptr);
  }

 private:
  void SuccessInternal(const T* result) override {
    Send(codec_->EncodeSuccessEnvelope(result).Extract().get());
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const T* details) override {
    Send(codec_->EncodeErrorEnvelope(code, message, details).Extract().get());
  }
  void NotImplementedInternal() override { Send(nullptr); }

  // Null data is the empty answer, which means "not implemented".
  void Send(const std::vector<uint8_t>* data) {
    is_answered_ = true;
    reply_.SendResponseData(data);
  }

  internal::ReplyManager reply_;
  const MethodCodec<T>* const codec_;
  bool is_answered_ = false;
};

// Passes the content of an envelope on to another result and remembers that it did.
template <typename T>
class NotedResult final : public MethodResult<T> {
 public:
  explicit NotedResult(MethodResult<T>* result) : result_(result) {}

  bool IsTold() const { return is_told_; }

 private:
  void SuccessInternal(const T* result) override { Note()->Success(result); }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const T* details) override {
    Note()->Error(code, message, details);
  }
  void NotImplementedInternal() override { Note()->NotImplemented(); }

  MethodResult<T>* Note() {
    is_told_ = true;
    return result_;
  }

  MethodResult<T>* const result_;
  bool is_told_ = false;
};

// Tells the answer to `result`: exactly one operation of it is called, whatever the peer sent.
template <typename T>
void TellResult(const MethodCodec<T>& codec, const uint8_t* data, size_t size,
                MethodResult<T>* result) {
  if (size == 0) return result->NotImplemented();
  NotedResult<T> noted(result);
  try {
    codec.DecodeAndProcessResponseEnvelope(data, size, &noted);
  } catch (...) {
    if (noted.IsTold()) throw;  // The result itself threw, not the decoder.
  }
  if (!noted.IsTold()) result->Error("malformed-response", "The answer is no result envelope.");
}

}  // namespace details

// One end of a channel whose values are of the type T. For each name there should be one channel:
// channels of the same name replace each other's handlers, and the end of any removes them.
template <typename T = EncodableValue>
class MethodChannel {
 public:
  // Receives a call and answers it by one operation of `result`, during the call or later.
  using Handler =
      std::function<void(const MethodCall<T>& call, std::unique_ptr<MethodResult<T>> result)>;

  // A null messenger makes a channel on which nothing is sent or received: results given to Invoke
  // are destroyed uncalled. The codec must not be null.
  MethodChannel(BinaryMessenger* messenger, std::string name,
                const MethodCodec<T>* codec = &StandardMethodCodec::GetInstance())
      : messenger_(messenger), name_(std::move(name)), codec_(codec) {}

  // Removes the handler if it was set through this channel. Calls that wait for an answer still get
  // it.
  ~MethodChannel() {
    if (has_handler_) SetHandler(nullptr);
  }
  MethodChannel(const MethodChannel&) = delete;
  MethodChannel& operator=(const MethodChannel&) = delete;

  // The channel's name, as it was given to the constructor.
  const std::string& GetName() const { return name_; }

  // Sets the channel's only handler in the place of an earlier one; an empty handler removes it.
  void SetHandler(Handler handler) {
    if (!messenger_) return;
    has_handler_ = static_cast<bool>(handler);
    if (!has_handler_) return messenger_->SetMessageHandler(name_, nullptr);
    messenger_->SetMessageHandler(name_, [handler = std::move(handler), codec = codec_](
                                             const uint8_t* data, size_t size, BinaryReply reply) {
      auto result = std::make_unique<details::ChannelResult<T>>(std::move(reply), codec);
      const auto call = codec->DecodeMethodCall(data, size);
      if (call) handler(*call, std::move(result));
    });
  }

  // Calls a method of the other side. When the answer comes, exactly one operation of `result`
  // (null: the answer does not matter) is called:
  //   - NotImplemented for an empty answer, also when nobody listens on the channel;
  //   - Error("malformed-response") for an answer that is no result envelope;
  //   - otherwise the operation that the other side has called.
  // No operation is called when the call cannot be sent and when the messenger is destroyed before
  // the answer. A result may be called after the channel's end.
  void Invoke(const std::string& method, T arguments,
              std::unique_ptr<MethodResult<T>> result = nullptr) {
    Send(MethodCall<T>(method, std::make_unique<T>(std::move(arguments))), std::move(result));
  }

  // The same for a call without arguments.
  void Invoke(const std::string& method, std::unique_ptr<MethodResult<T>> result = nullptr) {
    Send(MethodCall<T>(method, nullptr), std::move(result));
  }

 private:
  // Shares the result with the reply, because a reply must be copyable.
  void Send(const MethodCall<T>& call, std::unique_ptr<MethodResult<T>> result) {
    if (!messenger_) return;
    const auto message = codec_->EncodeMethodCall(call);
    BinaryReply reply;
    if (result) {
      reply = [result = std::shared_ptr<MethodResult<T>>(std::move(result)), codec = codec_](
                  const uint8_t* data, size_t size) {
        details::TellResult(*codec, data, size, result.get());
      };
    }
    messenger_->Send(name_, message.GetData(), message.GetSize(), std::move(reply));
  }

  BinaryMessenger* const messenger_;
  const std::string name_;
  const MethodCodec<T>* const codec_;
  bool has_handler_ = false;  // The destructor removes only a handler that was set here.
};

}  // namespace cw
