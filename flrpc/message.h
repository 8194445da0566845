// The one value that an RPC exchange carries: a request, a response, a notification or an error
// that belongs to no request, in the manner of JSON-RPC 2.0. docs/protocol.md shows the bytes.
//
// clang-format off
//   const auto request = flrpc::Message::CreateRequest(flrpc::Message::ID("id7_1"), "open", params);
//   const std::string text = request.ToBase64();
//   const auto answer = flrpc::Message::FromBase64(answer_text);
//   if (request.IsResponseForThis(answer)) Use(*answer.GetResponse());
// clang-format on
//
// Threads:   a plain value, no locking; const operations may run concurrently.
// Ownership: a message owns its parts. A pointer that a query returns is null when there is no such
//            part, and valid until the message is changed or destroyed.
// Errors:    no conversion throws, except std::bad_alloc. Malformed input becomes an error message
//            with the code kParseError, or the empty message and an error line, as each operation
//            tells. Encoding a custom value ends the process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "cw/encodable_value.h"
#include "forge/export.h"

namespace flrpc {

// The codes of errors that this library makes itself. An application may use any other code.
constexpr int kParseError = -32700;      // The message is malformed.
constexpr int kMethodNotFound = -32601;  // The server has no handler of the method.
constexpr int kInternalError = -32603;   // A local failure: no start, no connection, not sendable.

// A message of one of the types below.
class FORGE_EXPORT Message {
 public:
  enum class Type { kEmpty = 0, kRequest = 1, kResponse = 2, kNotification = 3, kError = 4 };

  // The identifier of a request. It is a text, also when it was made from a number: ID(5) equals
  // ID("5").
  class FORGE_EXPORT ID {
   public:
    explicit ID(int64_t number);
    explicit ID(std::string_view text);

    // The text, for example "id7_1"; a number is in decimal.
    const std::string& GetText() const { return text_; }
    size_t GetHash() const { return std::hash<std::string>()(text_); }

    // The text as a value.
    cw::EncodableValue ToEncodable() const { return text_; }

    // Makes an identifier from a text or an integer, or from such an "id" member of a map. Any
    // other value gives an empty optional.
    static std::optional<ID> FromEncodable(const cw::EncodableValue& value);

    // Identifiers are compared by their texts.
    bool operator==(const ID& other) const { return text_ == other.text_; }
    bool operator==(std::string_view text) const { return text_ == text; }
    bool operator==(int64_t number) const { return *this == ID(number); }
    bool operator!=(const ID& other) const { return !(*this == other); }
    bool operator!=(std::string_view text) const { return !(*this == text); }
    bool operator!=(int64_t number) const { return !(*this == number); }

   private:
    std::string text_;
  };

  // The reason of a failure: a code for programs and a text for people.
  struct FORGE_EXPORT Error {
    Error(int error_code, std::string_view text);
    Error(int error_code, std::string_view text, const cw::EncodableValue& error_data);

    // A map with the members "code" and "message", and with "data" unless it is null.
    cw::EncodableValue ToEncodable() const;

    // Makes an error from such a map. The code must be an integer of 32 bits and the message a
    // text. Conversion tells whether that succeeded. The second form moves the message and the data
    // out.
    struct Conversion;
    static Conversion FromEncodable(const cw::EncodableValue& value);
    static Conversion FromEncodable(cw::EncodableValue&& value);

    int32_t code;
    std::string message;
    cw::EncodableValue data;  // Null: the error has none.
  };

  // A call that wants one response with the same identifier.
  struct FORGE_EXPORT Request {
    ID id;
    std::string method;
    cw::EncodableValue params;  // Null: the request has none.
  };

  // The answer to the request with this identifier: a result, which may be the null value, or an
  // error.
  struct FORGE_EXPORT Response {
    Response(ID request_id, cw::EncodableValue result);
    Response(ID request_id, Error error);

    // Each query returns null when the response is of the other kind; GetMapResult also when the
    // result is no map.
    bool HasResult() const { return body.index() == 0; }
    const cw::EncodableValue* GetResult() const { return std::get_if<0>(&body); }
    const cw::EncodableMap* GetMapResult() const;
    bool IsError() const { return body.index() == 1; }
    const Error* GetError() const { return std::get_if<1>(&body); }

    ID id;
    std::variant<cw::EncodableValue, Error> body;
  };

  // A call that wants no response.
  struct FORGE_EXPORT Notification {
    std::string method;
    cw::EncodableValue params;  // Null: the notification has none.
  };

  Message() = default;                                          // The empty message.
  Message(Request&& request) : body_(std::move(request)) {}     // NOLINT: a message is its part.
  Message(Response&& response) : body_(std::move(response)) {}  // NOLINT
  Message(Notification&& notification) : body_(std::move(notification)) {}  // NOLINT
  Message(Error&& error) : body_(std::move(error)) {}                       // NOLINT

  // Make messages of their parts; CreateError with an identifier makes a response. An empty method
  // name is not refused here, but a receiver takes such a message as the empty message.
  static Message CreateRequest(ID id, std::string_view method, cw::EncodableValue params);
  static Message CreateResponse(ID id, cw::EncodableValue result);
  static Message CreateError(ID id, int code, std::string_view message, cw::EncodableValue data);
  static Message CreateError(ID id, Error error);
  static Message CreateNotification(std::string_view method, cw::EncodableValue params);
  static Message CreateError(int code, std::string_view message, cw::EncodableValue data);
  static Message CreateError(Error error);

  // Queries. Null, or false, when the message is of another type. IsError is false for a response
  // with an error.
  Type GetType() const;
  bool IsEmpty() const { return GetType() == Type::kEmpty; }
  bool IsError() const { return GetType() == Type::kError; }
  const Request* GetRequest() const { return std::get_if<Request>(&body_); }
  const Response* GetResponse() const { return std::get_if<Response>(&body_); }
  const Notification* GetNotification() const { return std::get_if<Notification>(&body_); }
  const Error* GetError() const { return std::get_if<Error>(&body_); }
  // Returns whether the message is a request of this method.
  bool IsRequest(std::string_view method) const;

  // Returns whether this is a request and `other` is the response to it.
  bool IsResponseForThis(const Message& other) const;

  // The message as a map of its members. The empty message gives the null value and an error line.
  cw::EncodableValue ToEncodable() const;

  // Makes a message from such a map. A malformed value gives an error message with kParseError. An
  // empty method name, and one that is no text, gives the empty message and an error line. Unknown
  // members are ignored. The second form moves parameters, results and data out, also on failure.
  static Message FromEncodable(const cw::EncodableValue& value);
  static Message FromEncodable(cw::EncodableValue&& value);

  // The map in the standard codec's encoding, as Base64 text. The empty message is encoded as the
  // null value, with an error line. A message that is too large for Base64 (forge/buffer.h) gives
  // the empty text and an error line.
  std::string ToBase64() const;

  // Decodes such a text. The result is the empty message:
  //   - for an empty text, for a text that is no Base64 and for the null value, without a line;
  //   - for bytes that nest or declare too much (cw/admission.h), with an error line;
  //   - for a message that does not fit into memory, with an error line.
  // Any other value is converted as by FromEncodable. The second form frees the text before it
  // decodes the bytes, which saves memory.
  static Message FromBase64(const std::string& text);
  static Message FromBase64(std::string&& text);

 private:
  std::variant<std::monostate, Request, Response, Notification, Error> body_;
};

// The result of Error::FromEncodable. If it did not succeed, `error` tells why, with kParseError.
struct Message::Error::Conversion {
  Error error;
  bool succeeded;
};

}  // namespace flrpc

template <>
struct std::hash<flrpc::Message::ID> {
  size_t operator()(const flrpc::Message::ID& id) const { return id.GetHash(); }
};
