#include "flrpc/message.h"

#include "forge/logger.h"

namespace flrpc {
namespace {

using cw::EncodableMap;
using cw::EncodableValue;

// The members' names. Never destroyed: messages may still come while the process exits.
struct Names {
  const EncodableValue json_rpc = "jsonrpc";
  const EncodableValue version = "2.0";
  const EncodableValue id = "id";
  const EncodableValue method = "method";
  const EncodableValue params = "params";
  const EncodableValue result = "result";
  const EncodableValue error = "error";
  const EncodableValue code = "code";
  const EncodableValue message = "message";
  const EncodableValue data = "data";

  static const Names& Get() {
    static const Names& names = *new Names;
    return names;
  }
};

// Returns the member of that name, or null.
EncodableValue* Find(EncodableMap& map, const EncodableValue& name) {
  const auto found = map.find(name);
  return found == map.end() ? nullptr : &found->second;
}

// Moves the member's value out; the null value if there is no such member.
EncodableValue Take(EncodableMap& map, const EncodableValue& name) {
  auto* value = Find(map, name);
  return value ? std::move(*value) : EncodableValue();
}

Message ParseError(std::string_view text) { return Message::CreateError(kParseError, text, {}); }

// ---- From a map ---------------------------------------------------------------------------------

bool IsOurVersion(EncodableMap& map) {
  const auto* version = Find(map, Names::Get().json_rpc);
  return version && *version == Names::Get().version;
}

// The message of a map that has a method: a request or a notification.
Message CallFrom(EncodableMap& map, EncodableValue& method) {
  auto* name = method.GetIf<std::string>();
  const auto* id_member = Find(map, Names::Get().id);
  if (!name || name->empty()) {
    FORGE_LOG(kError) << (id_member ? "Method name is empty in RPC request"
                                    : "Method name is empty in RPC notification");
    return {};
  }
  EncodableValue params = Take(map, Names::Get().params);
  if (!id_member) return Message::Notification{std::move(*name), std::move(params)};
  auto id = Message::ID::FromEncodable(*id_member);
  if (!id) return ParseError("Invalid id value in RPC request object");
  return Message::Request{std::move(*id), std::move(*name), std::move(params)};
}

// The message of a map that has an error: a response, or an error that belongs to no request.
Message ErrorFrom(EncodableValue& value, EncodableMap& map, EncodableValue& error_member) {
  const bool has_id = Find(map, Names::Get().id) != nullptr;
  auto [error, succeeded] = Message::Error::FromEncodable(std::move(error_member));
  if (!succeeded || !has_id) return Message::CreateError(std::move(error));
  auto id = Message::ID::FromEncodable(value);
  if (!id) return ParseError("Invalid id value in RPC response object");
  return Message::CreateError(std::move(*id), std::move(error));
}

Message ResultFrom(EncodableValue& value, EncodableMap& map) {
  auto id = Message::ID::FromEncodable(value);
  if (!id) return ParseError("Invalid id value in RPC response object");
  auto* result = Find(map, Names::Get().result);
  if (!result) return ParseError("Invalid RPC message");
  return Message::CreateResponse(std::move(*id), std::move(*result));
}

}  // namespace

// ---- ID -----------------------------------------------------------------------------------------

Message::ID::ID(int64_t number) : text_(std::to_string(number)) {}

Message::ID::ID(std::string_view text) : text_(text) {}

std::optional<Message::ID> Message::ID::FromEncodable(const EncodableValue& value) {
  const EncodableValue* looked_at = &value;
  if (const auto* map = value.GetIf<EncodableMap>()) {
    const auto found = map->find(Names::Get().id);
    if (found != map->end()) looked_at = &found->second;
  }
  if (const auto* text = looked_at->GetIf<std::string>()) return ID(*text);
  if (const auto* number = looked_at->GetIf<int32_t>()) return ID(*number);
  if (const auto* number = looked_at->GetIf<int64_t>()) return ID(*number);
  return std::nullopt;
}

// ---- Error --------------------------------------------------------------------------------------

Message::Error::Error(int error_code, std::string_view text) : code(error_code), message(text) {}

Message::Error::Error(int error_code, std::string_view text, const EncodableValue& error_data)
    : code(error_code), message(text), data(error_data) {}

EncodableValue Message::Error::ToEncodable() const {
  EncodableMap map{{Names::Get().code, code}, {Names::Get().message, message}};
  if (!data.IsNull()) map.emplace(Names::Get().data, data);
  return map;
}

Message::Error::Conversion Message::Error::FromEncodable(const EncodableValue& value) {
  return FromEncodable(value.Is<EncodableMap>() ? EncodableValue(value) : EncodableValue());
}

Message::Error::Conversion Message::Error::FromEncodable(EncodableValue&& value) {
  const auto failure = [](std::string_view text) {
    return Conversion{Error(kParseError, text), false};
  };
  auto* map = value.GetIf<EncodableMap>();
  if (!map) {
    return failure(
        "The Response Object MUST contain the error member with a value that is a Object");
  }
  const auto* code_member = Find(*map, Names::Get().code);
  if (!code_member) return failure("The Error object does not have a required code field.");
  const auto* narrow = code_member->GetIf<int32_t>();
  const auto* wide = code_member->GetIf<int64_t>();
  if (!narrow && !wide) return failure("The code field contains not integer number");
  const int64_t code = narrow ? *narrow : *wide;
  if (code != static_cast<int32_t>(code)) {
    return failure("The code field contains a value out of the supported range");
  }
  auto* message_member = Find(*map, Names::Get().message);
  if (!message_member) {
    return failure("The Error object does not have a required messsage field.");
  }
  auto* text = message_member->GetIf<std::string>();
  if (!text) return failure("The message field contains not string value");
  Error error(static_cast<int>(code), {});
  error.message = std::move(*text);
  error.data = Take(*map, Names::Get().data);
  return {std::move(error), true};
}

// ---- Response -----------------------------------------------------------------------------------

Message::Response::Response(ID request_id, EncodableValue result)
    : id(std::move(request_id)), body(std::in_place_index<0>, std::move(result)) {}

Message::Response::Response(ID request_id, Error error)
    : id(std::move(request_id)), body(std::in_place_index<1>, std::move(error)) {}

const EncodableMap* Message::Response::GetMapResult() const {
  const auto* result = GetResult();
  return result ? result->GetIf<EncodableMap>() : nullptr;
}

// ---- Message ------------------------------------------------------------------------------------

Message Message::CreateRequest(ID id, std::string_view method, EncodableValue params) {
  return Request{std::move(id), std::string(method), std::move(params)};
}

Message Message::CreateResponse(ID id, EncodableValue result) {
  return Response(std::move(id), std::move(result));
}

Message Message::CreateError(ID id, int code, std::string_view message, EncodableValue data) {
  Error error(code, message);
  error.data = std::move(data);
  return CreateError(std::move(id), std::move(error));
}

Message Message::CreateError(ID id, Error error) {
  return Response(std::move(id), std::move(error));
}

Message Message::CreateNotification(std::string_view method, EncodableValue params) {
  return Notification{std::string(method), std::move(params)};
}

Message Message::CreateError(int code, std::string_view message, EncodableValue data) {
  Error error(code, message);
  error.data = std::move(data);
  return error;
}

Message Message::CreateError(Error error) { return error; }

Message::Type Message::GetType() const {
  return body_.valueless_by_exception() ? Type::kEmpty : static_cast<Type>(body_.index());
}

bool Message::IsRequest(std::string_view method) const {
  const auto* request = GetRequest();
  return request && request->method == method;
}

bool Message::IsResponseForThis(const Message& other) const {
  const auto* request = GetRequest();
  const auto* response = other.GetResponse();
  return request && response && request->id == response->id;
}

EncodableValue Message::ToEncodable() const {
  EncodableMap map{{Names::Get().json_rpc, Names::Get().version}};
  if (const auto* request = GetRequest()) {
    map.emplace(Names::Get().id, request->id.ToEncodable());
    map.emplace(Names::Get().method, request->method);
    if (!request->params.IsNull()) map.emplace(Names::Get().params, request->params);
  } else if (const auto* response = GetResponse()) {
    map.emplace(Names::Get().id, response->id.ToEncodable());
    if (const auto* error = response->GetError()) {
      map.emplace(Names::Get().error, error->ToEncodable());
    } else if (const auto* result = response->GetResult()) {
      map.emplace(Names::Get().result, *result);
    } else {
      FORGE_LOG(kError) << "Invalid RPC message";
      return {};
    }
  } else if (const auto* notification = GetNotification()) {
    map.emplace(Names::Get().method, notification->method);
    if (!notification->params.IsNull()) map.emplace(Names::Get().params, notification->params);
  } else if (const auto* error = GetError()) {
    map.emplace(Names::Get().error, error->ToEncodable());
  } else {
    FORGE_LOG(kError) << "Invalid Json-RPC message";
    return {};
  }
  return map;
}

Message Message::FromEncodable(const EncodableValue& value) {
  return FromEncodable(value.Is<EncodableMap>() ? EncodableValue(value) : EncodableValue());
}

Message Message::FromEncodable(EncodableValue&& value) {
  auto* map = value.GetIf<EncodableMap>();
  if (!map || !IsOurVersion(*map)) return ParseError("Emply or invalid RPC message");
  if (auto* method = Find(*map, Names::Get().method)) return CallFrom(*map, *method);
  if (auto* error = Find(*map, Names::Get().error)) return ErrorFrom(value, *map, *error);
  return ResultFrom(value, *map);
}

}  // namespace flrpc
