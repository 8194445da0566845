// Slots for the embedder: they carry a function object across the C border and back.
//
// The function may have its own slot released while it runs (a listener that unsubscribes itself).
//
// Errors:  whatever the function throws ends at the border as one error line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "cw/admission.h"
#include "cw/encodable_value.h"
#include "forge/fence.h"
#include "forge/logger.h"
#include "forge/signals.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace cw::details {

// An empty function is a slot that does nothing.
template <typename Slot, typename... Args>
Slot CreateFencedSlot(const char* place, std::function<void(Args...)> function) {
  auto shared = std::make_shared<const std::function<void(Args...)>>(std::move(function));
  return forge::CreateSlot<Slot, Args...>([place, shared = std::move(shared)](Args... args) {
    const auto kept = shared;  // This object may be released by the call.
    if (*kept) forge::Fence(place, [&] { (*kept)(args...); });
  });
}

// A value that another window sent by way of the embedder; null, and an error line, when it exceeds
// a limit of cw/admission.h.
inline EncodableValue DecodeForeign(const char* place, const uint8_t* data, std::size_t size) {
  EncodableValue value;
  forge::Fence(place, [&] {
    const char* const fault = data ? FindInadmissible(data, size) : nullptr;
    if (fault) {
      FORGE_LOG(kError) << "Undecodable " << place << ": " << fault;
    } else {
      value = EncodableValue::Deserialize(data, size);
    }
  });
  return value;
}

using WindowResult = std::function<void(const EncodableValue&, std::string)>;

// The slot of a window that answers, once, with a value and a text. None for an empty function.
inline std::optional<FlutterOstrelResultSlot> CreateResultSlot(const WindowResult& function) {
  if (!function) return std::nullopt;
  auto pending = std::make_shared<WindowResult>(function);
  std::function<void(const uint8_t*, std::size_t, const char*)> decode =
      [pending](const uint8_t* data, std::size_t size, const char* text) {
        const WindowResult result = std::exchange(*pending, nullptr);
        if (!result) return;
        std::string owned;  // The caller is told in any case, if need be with less.
        forge::Fence("window result", [&] { owned = text ? text : ""; });
        result(DecodeForeign("window result", data, size), std::move(owned));
      };
  return CreateFencedSlot<FlutterOstrelResultSlot>("window result", std::move(decode));
}

}  // namespace cw::details
