#include "cw/encodable_value.h"

#include "cw/standard_message_codec.h"

namespace cw {
namespace {

template <typename T>
int CompareScalars(const T& a, const T& b) {
  return a < b ? -1 : (b < a ? 1 : 0);
}

// A proper prefix comes first.
template <typename Sequence, typename CompareElements>
int CompareSequences(const Sequence& a, const Sequence& b, CompareElements compare) {
  auto at = b.begin();
  for (const auto& element : a) {
    if (at == b.end()) return 1;
    if (const int order = compare(element, *at++)) return order;
  }
  return at == b.end() ? 0 : -1;
}

}  // namespace

int EncodableValue::Compare(const EncodableValue& a, const EncodableValue& b) {
  // One that holds nothing after a failed assignment has the index npos, and comes first.
  const size_t rank = a.GetIndex() + 1;
  if (rank != b.GetIndex() + 1 || rank == 0) return CompareScalars(rank, b.GetIndex() + 1);
  return a.Visit([&b](const auto& left) -> int {
    using T = std::decay_t<decltype(left)>;
    const T& right = *b.GetIf<T>();
    if constexpr (std::is_same_v<T, std::monostate>) {
      return 0;
    } else if constexpr (std::is_same_v<T, std::string>) {
      return left.compare(right);
    } else if constexpr (std::is_same_v<T, EncodableList>) {
      return CompareSequences(left, right, Compare);
    } else if constexpr (std::is_same_v<T, EncodableMap>) {
      return CompareSequences(left, right, [](const auto& one, const auto& other) {
        const int order = Compare(one.first, other.first);
        return order != 0 ? order : Compare(one.second, other.second);
      });
    } else if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, CustomEncodableValue>) {
      return CompareScalars(left, right);
    } else {
      return CompareSequences(left, right, CompareScalars<typename T::value_type>);
    }
  });
}

forge::Buffer EncodableValue::Serialize() const {
  static const StandardMessageCodec& codec = StandardMessageCodec::GetInstance();
  return codec.EncodeMessage(*this);
}

EncodableValue EncodableValue::Deserialize(const uint8_t* data, size_t size) {
  static const StandardMessageCodec& codec = StandardMessageCodec::GetInstance();
  if (!data || size == 0) return {};
  const auto value = codec.DecodeMessage(data, size);
  return value ? std::move(*value) : EncodableValue();
}

EncodableValue EncodableValue::Deserialize(ForgeBufferView* view) {
  if (!view) return {};
  const uint32_t declared = view->struct_size;
  return Deserialize(FORGE_COVERS(ForgeBufferView, data, declared) ? view->data : nullptr,
                     FORGE_COVERS(ForgeBufferView, size, declared) ? view->size : 0);
}

EncodableValue EncodableValue::Deserialize(const forge::Buffer& buffer) {
  return Deserialize(buffer.GetData(), buffer.GetSize());
}

}  // namespace cw
