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

// A proper prefix is the smaller one.
template <typename Sequence>
int CompareSequences(const Sequence& a, const Sequence& b) {
  auto at = b.begin();
  for (const auto& element : a) {
    if (at == b.end()) return 1;
    if (const int order = CompareScalars(element, *at++)) return order;
  }
  return at == b.end() ? 0 : -1;
}

// Compares two nodes without the values in them.
int CompareNodes(const EncodableValue& a, const EncodableValue& b) {
  // After a failed assignment a value has the index npos; it is smaller than all others.
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

// Compares two nodes and the numbers of the values in them.
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

// The standard containers copy and destroy their elements by recursion and report no depth, so each
// thread counts it. A value at the depth of kNearLevels handles everything below it in a loop: the
// values that its containers would recurse into are put off.
//
// With the initial-exec model the counts lie in memory that each thread has from its start. With
// other models the first use on a thread allocates, and ends the process if there is no memory.
#define TAVO_STATIC_TLS __attribute__((tls_model("initial-exec")))

struct Copy {
  const EncodableValue* from;
  EncodableValue* to;  // An empty container of the same kind.
};
// The copy of a map must not compare keys, because their copies may be put off. libstdc++ copies
// maps node by node, without comparisons.
struct Copying {
  size_t depth = 0;
  std::vector<Copy>* put_off = nullptr;  // The list of the value that copies everything below it.
};
TAVO_STATIC_TLS thread_local Copying copying;

// These guards restore the state when copying throws.
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
  // The start of a chain: each value holds the next one as its first.
  EncodableValue* put_off = nullptr;
};
TAVO_STATIC_TLS thread_local Destroying destroying;

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

// The frequent alternatives come first: this is faster than the variant's table of functions.
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

void EncodableValue::Destroy() noexcept {
  if (value_.index() == kCustomIndex) return DestroyCustom();
  if (HoldsValues()) DestroyTree();
}

// The object may destroy values of its own, which must be destroyed before this returns.
void EncodableValue::DestroyCustom() noexcept {
  const Destroying outer = std::exchange(destroying, {});
  value_.emplace<std::monostate>();
  destroying = outer;
}

void EncodableValue::DestroyTree() noexcept {
  if (destroying.put_off) return PutOffDestruction();
  if (destroying.depth == details::kNearLevels) return DestroyDeepTree();
  ++destroying.depth;
  Clear(*this);
  --destroying.depth;
}

// The place in a value put off where the next one of the chain is stored.
EncodableValue& EncodableValue::FirstHeld() {
  auto* const list = GetIf<EncodableList>();
  return list ? list->front() : GetIf<EncodableMap>()->begin()->second;
}

// Allocates nothing. The value that gives its place to the chain is put off in turn.
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
  // The same as the standard message codec, without its allocation.
  ByteBufferStreamReader stream(data, size);
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
