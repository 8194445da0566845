// Slots for the embedder: they carry a function object across the C border and back.
//
// A function may release its own slot while it runs: a listener may unsubscribe itself.
//
// Errors:  an exception of the function is one error line and does not reach C.
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

// Makes a slot that calls the function. The slot of an empty function does nothing.
template <typename Slot, typename... Args>
Slot CreateFencedSlot(const char* place, std::function<void(Args...)> function) {
  auto shared = std::make_shared<const std::function<void(Args...)>>(std::move(function));
  return forge::CreateSlot<Slot, Args...>([place, shared = std::move(shared)](Args... args) {
    const auto kept = shared;  // The call may release this object.
    if (*kept) forge::Fence(place, [&] { (*kept)(args...); });
  });
}

// Decodes a value that another window has sent through the embedder. The result is the null value,
// with an error line, when the value exceeds a limit of cw/admission.h.
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

// Makes the slot of a window, which answers once with a value and a text. An empty function has no
// slot.
inline std::optional<FlutterOstrelResultSlot> CreateResultSlot(const WindowResult& function) {
  if (!function) return std::nullopt;
  auto pending = std::make_shared<WindowResult>(function);
  std::function<void(const uint8_t*, std::size_t, const char*)> decode =
      [pending](const uint8_t* data, std::size_t size, const char* text) {
        const WindowResult result = std::exchange(*pending, nullptr);
        if (!result) return;
        // Without memory for the text, the function is called with an empty one.
        std::string owned;
        forge::Fence("window result", [&] { owned = text ? text : ""; });
        result(DecodeForeign("window result", data, size), std::move(owned));
      };
  return CreateFencedSlot<FlutterOstrelResultSlot>("window result", std::move(decode));
}

}  // namespace cw::details
