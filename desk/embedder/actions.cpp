#include "desk/embedder/actions.h"

#include <utility>

#include "cw/admission.h"

namespace desk {

void Actions::Record(const char* action, cw::EncodableMap details) {
  details["action"] = action;
  cw::EncodableValue value(std::move(details));
  const auto observer = observer_;  // The observer may replace itself.
  if (observer) observer(value);
  if (actions_.size() < kMaxKept) actions_.push_back(std::move(value));
}

void AddDecoded(const char* key, const uint8_t* data, size_t size, cw::EncodableMap* details) {
  if (!data || size == 0) {
    (*details)[key] = {};
  } else if (const char* fault = cw::FindInadmissible(data, size)) {
    (*details)[std::string(key) + "_fault"] = fault;
  } else {
    (*details)[key] = cw::EncodableValue::Deserialize(data, size);
  }
}

cw::EncodableValue ToValue(size_t number) {
  const auto small = static_cast<int32_t>(number);
  if (small >= 0 && static_cast<size_t>(small) == number) return small;
  return cw::EncodableValue(std::in_place_type<int64_t>, static_cast<int64_t>(number));
}

cw::EncodableValue ToValue(const char* text) {
  return text ? cw::EncodableValue(text) : cw::EncodableValue();
}

}  // namespace desk
