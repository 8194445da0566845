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
// Threads: a plain value, no locking; const operations may run side by side.
// Errors:  no conversion throws, save for want of memory. What is malformed becomes an error
//          message with the code kParseError, or the empty message (and an error line), as each
//          operation tells. A pointer that a query returns is null when there is no such part, and
//          good as long as the message lives unchanged.
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

constexpr int kParseError = -32700;  // Whatever is malformed.
constexpr int kMethodNotFound = -32601;
constexpr int kInternalError = -32603;  // Local failures: no start, no connection.

class FORGE_EXPORT Message {
 public:
  enum class Type { kEmpty = 0, kRequest = 1, kResponse = 2, kNotification = 3, kError = 4 };

  // Identifies a request; a text, also when it was made from a number: ID(5) equals ID("5").
  class FORGE_EXPORT ID {
   public:
    explicit ID(int64_t number);
    explicit ID(std::string_view text);

    const std::string& GetText() const { return text_; }
    size_t GetHash() const { return std::hash<std::string>()(text_); }

    cw::EncodableValue ToEncodable() const { return text_; }

    // From a text or an integer, or from the "id" member of a map; nothing else is an identifier.
    static std::optional<ID> FromEncodable(const cw::EncodableValue& value);

    bool operator==(const ID& other) const { return text_ == other.text_; }
    bool operator==(std::string_view text) const { return text_ == text; }
    bool operator==(int64_t number) const { return *this == ID(number); }
    bool operator!=(const ID& other) const { return !(*this == other); }
    bool operator!=(std::string_view text) const { return !(*this == text); }
    bool operator!=(int64_t number) const { return !(*this == number); }

   private:
    std::string text_;
  };

  struct FORGE_EXPORT Error {
    Error(int error_code, std::string_view text);
    Error(int error_code, std::string_view text, const cw::EncodableValue& error_data);

    cw::EncodableValue ToEncodable() const;

    struct Conversion;
    static Conversion FromEncodable(const cw::EncodableValue& value);
    static Conversion FromEncodable(cw::EncodableValue&& value);

    int32_t code;
    std::string message;
    cw::EncodableValue data;  // Null: none.
  };

  struct FORGE_EXPORT Request {
    ID id;
    std::string method;
    cw::EncodableValue params;  // Null: none.
  };

  struct FORGE_EXPORT Response {
    Response(ID request_id, cw::EncodableValue result);
    Response(ID request_id, Error error);

    bool HasResult() const { return body.index() == 0; }
    const cw::EncodableValue* GetResult() const { return std::get_if<0>(&body); }
    const cw::EncodableMap* GetMapResult() const;
    bool IsError() const { return body.index() == 1; }
    const Error* GetError() const { return std::get_if<1>(&body); }

    ID id;
    std::variant<cw::EncodableValue, Error> body;
  };

  struct FORGE_EXPORT Notification {
    std::string method;
    cw::EncodableValue params;  // Null: none.
  };

  Message() = default;                                          // Empty.
  Message(Request&& request) : body_(std::move(request)) {}     // NOLINT: a message is its part.
  Message(Response&& response) : body_(std::move(response)) {}  // NOLINT
  Message(Notification&& notification) : body_(std::move(notification)) {}  // NOLINT
  Message(Error&& error) : body_(std::move(error)) {}                       // NOLINT

  static Message CreateRequest(ID id, std::string_view method, cw::EncodableValue params);
  static Message CreateResponse(ID id, cw::EncodableValue result);
  static Message CreateError(ID id, int code, std::string_view message, cw::EncodableValue data);
  static Message CreateError(ID id, Error error);
  static Message CreateNotification(std::string_view method, cw::EncodableValue params);
  static Message CreateError(int code, std::string_view message, cw::EncodableValue data);
  static Message CreateError(Error error);

  Type GetType() const;
  bool IsEmpty() const { return GetType() == Type::kEmpty; }
  bool IsError() const { return GetType() == Type::kError; }  // Not: a response with an error.
  const Request* GetRequest() const { return std::get_if<Request>(&body_); }
  const Response* GetResponse() const { return std::get_if<Response>(&body_); }
  const Notification* GetNotification() const { return std::get_if<Notification>(&body_); }
  const Error* GetError() const { return std::get_if<Error>(&body_); }
  bool IsRequest(std::string_view method) const;

  // This is a request, and `other` the response to it.
  bool IsResponseForThis(const Message& other) const;

  // A map; null, and an error line, for the empty message.
  cw::EncodableValue ToEncodable() const;

  // An error message with kParseError for what is malformed; the empty message, and an error line,
  // for an empty method name. The second form moves parameters, results and data out.
  static Message FromEncodable(const cw::EncodableValue& value);
  static Message FromEncodable(cw::EncodableValue&& value);

  // The map in the standard codec's encoding, as Base64 text. The empty message is null there.
  std::string ToBase64() const;

  // The empty message for an empty text, for what is no Base64 and for null; with an error line for
  // bytes that nest or declare too much (cw/admission.h) or that no memory can hold. The second
  // form frees the text before it decodes the bytes.
  static Message FromBase64(const std::string& text);
  static Message FromBase64(std::string&& text);

 private:
  std::variant<std::monostate, Request, Response, Notification, Error> body_;
};

// An error, or why there is none: then it says that itself, with kParseError.
struct Message::Error::Conversion {
  Error error;
  bool succeeded;
};

}  // namespace flrpc

template <>
struct std::hash<flrpc::Message::ID> {
  size_t operator()(const flrpc::Message::ID& id) const { return id.GetHash(); }
};
