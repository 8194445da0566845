#include "cw/encodable_value.h"

#include "cw/byte_streams.h"
#include "cw/standard_codec_serializer.h"
#include "cw/standard_message_codec.h"
#include "cw/value_tree.h"

namespace cw {
namespace {

// ---- Comparison ---------------------------------------------------------------------------------

template <typename T>
constexpr bool kHoldsValues = std::is_same_v<T, EncodableList> || std::is_same_v<T, EncodableMap>;

template <typename T>
int CompareScalars(const T& a, const T& b) {
  return a < b ? -1 : (b < a ? 1 : 0);
}

// A proper prefix comes first.
template <typename Sequence>
int CompareSequences(const Sequence& a, const Sequence& b) {
  auto at = b.begin();
  for (const auto& element : a) {
    if (at == b.end()) return 1;
    if (const int order = CompareScalars(element, *at++)) return order;
  }
  return at == b.end() ? 0 : -1;
}

// Without what they hold.
int CompareNodes(const EncodableValue& a, const EncodableValue& b) {
  // One that holds nothing after a failed assignment has the index npos, and comes first.
  const size_t rank = a.GetIndex() + 1;
  if (rank != b.GetIndex() + 1 || rank == 0) return CompareScalars(rank, b.GetIndex() + 1);
  return a.Visit([&b](const auto& left) -> int {
    using T = std::decay_t<decltype(left)>;
    const T& right = *b.GetIf<T>();
    if constexpr (std::is_same_v<T, std::monostate> || kHoldsValues<T>) {
      return 0;
    } else if constexpr (std::is_same_v<T, std::string>) {
      return left.compare(right);
    } else if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, CustomEncodableValue>) {
      return CompareScalars(left, right);
    } else {
      return CompareSequences(left, right);
    }
  });
}

// Likewise, but for how much they hold.
bool AreNodesEqual(const EncodableValue& a, const EncodableValue& b) {
  if (a.GetIndex() != b.GetIndex()) return false;
  if (a.GetIndex() == std::variant_npos) return true;
  return a.Visit([&b](const auto& left) {
    using T = std::decay_t<decltype(left)>;
    const T& right = *b.GetIf<T>();
    if constexpr (kHoldsValues<T>) {
      return left.size() == right.size();
    } else {
      return left == right;
    }
  });
}

// ---- Copy and destruction -----------------------------------------------------------------------

// The standard containers copy and destroy what they hold by recursion and tell no depth, so it is
// counted on the thread. A value at the depth of kNearLevels goes through everything below it by
// itself: what its containers would recurse into is put off.
struct Copy {
  const EncodableValue* from;
  EncodableValue* to;  // An empty container of the same kind.
};
struct Copying {
  size_t depth = 0;
  std::vector<Copy>* put_off = nullptr;  // Of the value that goes through all below it.
};
thread_local Copying copying;

// Copying may throw.
struct Level {
  Level() { ++copying.depth; }
  ~Level() { --copying.depth; }
};
struct PutOffScope {
  explicit PutOffScope(std::vector<Copy>* put_off) { copying.put_off = put_off; }
  ~PutOffScope() { copying.put_off = nullptr; }
};

struct Destroying {
  size_t depth = 0;
  EncodableValue* put_off = nullptr;  // Likewise: a chain through the first value that each holds.
};
thread_local Destroying destroying;

void Clear(EncodableValue& value) {
  if (auto* map = value.GetIf<EncodableMap>()) return map->clear();
  if (auto* list = value.GetIf<EncodableList>()) list->clear();
}

}  // namespace

int EncodableValue::Compare(const EncodableValue& a, const EncodableValue& b) {
  return details::WalkBoth(a, b, CompareNodes);
}

bool EncodableValue::AreEqual(const EncodableValue& a, const EncodableValue& b) {
  return details::WalkBoth(a, b, [](const EncodableValue& left, const EncodableValue& right) {
           return AreNodesEqual(left, right) ? 0 : 1;
         }) == 0;
}

// The variant would go through a table of functions: this is quicker for what is frequent.
EncodableValue::Variant EncodableValue::CopyTo(EncodableValue* to) const {
  if (const auto* text = GetIf<std::string>()) return *text;
  if (const auto* number = GetIf<int32_t>()) return *number;
  if (const auto* number = GetIf<int64_t>()) return *number;
  if (const auto* number = GetIf<double>()) return *number;
  if (const auto* truth = GetIf<bool>()) return *truth;
  if (IsNull()) return {};
  if (!HoldsValues()) return value_;
  if (copying.put_off) return PutOffCopy(to);
  if (copying.depth == details::kNearLevels) return CopyDeepTree();
  const Level level;
  if (const auto* map = GetIf<EncodableMap>()) return *map;
  return *GetIf<EncodableList>();
}

EncodableValue::Variant EncodableValue::PutOffCopy(EncodableValue* to) const {
  copying.put_off->push_back({this, to});
  return Is<EncodableList>() ? Variant(EncodableList()) : Variant(EncodableMap());
}

EncodableValue::Variant EncodableValue::CopyDeepTree() const {
  std::vector<Copy> put_off;
  const PutOffScope scope(&put_off);
  Variant copy(value_);
  while (!put_off.empty()) {
    const Copy next = put_off.back();
    put_off.pop_back();
    next.to->value_ = next.from->value_;
  }
  return copy;
}

void EncodableValue::DestroyTree() noexcept {
  if (destroying.put_off) return PutOffDestruction();
  if (destroying.depth == details::kNearLevels) return DestroyDeepTree();
  ++destroying.depth;
  Clear(*this);
  --destroying.depth;
}

// The value that a value put off gives up for the next one in the chain.
EncodableValue& EncodableValue::FirstHeld() {
  auto* const list = GetIf<EncodableList>();
  return list ? list->front() : GetIf<EncodableMap>()->begin()->second;
}

// Allocates nothing. What gives its place to the chain is put off in turn.
void EncodableValue::PutOffDestruction() noexcept {
  for (EncodableValue value(std::move(*this)); value.HoldsValues();) {
    EncodableValue first = std::exchange(value.FirstHeld(), std::move(*destroying.put_off));
    *destroying.put_off = std::exchange(value, std::move(first));
  }
}

void EncodableValue::DestroyDeepTree() noexcept {
  EncodableValue chain;
  destroying.put_off = &chain;
  Clear(*this);
  while (chain.HoldsValues()) {
    EncodableValue next = std::move(chain);
    chain = std::move(next.FirstHeld());
    Clear(next);
  }
  destroying.put_off = nullptr;
}

// ---- Serialization ------------------------------------------------------------------------------

forge::Buffer EncodableValue::Serialize() const {
  static const StandardMessageCodec& codec = StandardMessageCodec::GetInstance();
  return codec.EncodeMessage(*this);
}

EncodableValue EncodableValue::Deserialize(const uint8_t* data, size_t size) {
  if (!data || size == 0) return {};
  ByteBufferStreamReader stream(data, size);  // As the standard message codec, without its result.
  return StandardCodecSerializer::GetInstance().ReadValue(&stream);
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
