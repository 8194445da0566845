#include "cw/admission.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "cw/encoded_type.h"
#include "cw/value_tree.h"

namespace cw {
namespace {

constexpr char kTooDeep[] = "it nests lists and maps more than 1024 levels deep";
constexpr char kTooMany[] = "it holds more than 4194304 values";
static_assert(kDeepestNesting == 1024 && kMaxValues == 4194304);  // As in the texts above.
constexpr char kTooMuchMissing[] = "it declares more than it holds";

// Reads the bytes in the order of the decoder: a read beyond the end does not advance.
class Scan {
 public:
  Scan(const uint8_t* data, size_t size) : data_(data), size_(data ? size : 0) {}

  const char* Run() {
    Open(1);
    while (depth_ > 0) {
      if (left_[depth_ - 1] == 0) {
        --depth_;
      } else if (location_ >= size_) {
        return CheckMissingElements();
      } else {
        if (++values_ > kMaxValues) return kTooMany;
        --left_[depth_ - 1];
        if (const char* cause = ScanValue()) return cause;
      }
    }
    return nullptr;
  }

 private:
  const char* ScanValue() {
    switch (static_cast<EncodedType>(data_[location_++])) {
      case EncodedType::kInt32:
        Skip(4);
        return nullptr;
      case EncodedType::kInt64:
        Skip(8);
        return nullptr;
      case EncodedType::kFloat64:
        Align(8);
        Skip(8);
        return nullptr;
      case EncodedType::kLargeInteger:
      case EncodedType::kString:
      case EncodedType::kUInt8List:
        return ScanBlock(1);
      case EncodedType::kInt32List:
      case EncodedType::kFloat32List:
        return ScanBlock(4);
      case EncodedType::kInt64List:
      case EncodedType::kFloat64List:
        return ScanBlock(8);
      case EncodedType::kList:
        return Open(ReadSize());
      case EncodedType::kMap:
        return Open(2 * uint64_t{ReadSize()});
      default:
        return nullptr;  // The tag has no payload.
    }
  }

  const char* ScanBlock(uint64_t width) {
    const uint64_t bytes = width * ReadSize();
    if (width > 1) Align(width);
    if (Skip(bytes)) return nullptr;
    missing_bytes_ += bytes;
    return missing_bytes_ > kMaxMissingBytes ? kTooMuchMissing : nullptr;
  }

  // Begins a container with this many values.
  const char* Open(uint64_t values) {
    if (depth_ > kDeepestNesting) return kTooDeep;
    left_[depth_++] = values;
    return nullptr;
  }

  // The end of the data: every value that is still declared is missing.
  const char* CheckMissingElements() const {
    uint64_t missing = 0;
    for (int i = 0; i < depth_; ++i) missing += left_[i];
    return missing > kMaxMissingElements ? kTooMuchMissing : nullptr;
  }

  uint32_t ReadSize() {
    uint8_t first = 0;
    Read(&first, 1);
    uint32_t size = first;
    if (first == kSize16Marker) Read(&(size = 0), 2);
    if (first == kSize32Marker) Read(&(size = 0), 4);
    return size;
  }

  // The encoding and the machine are both little-endian.
  void Read(void* to, uint64_t bytes) {
    const uint64_t from = location_;
    if (Skip(bytes)) std::memcpy(to, data_ + from, static_cast<size_t>(bytes));
  }

  bool Skip(uint64_t bytes) {
    if (location_ + bytes > size_) return false;
    location_ += bytes;
    return true;
  }

  void Align(uint64_t width) { location_ = (location_ + width - 1) / width * width; }

  const uint8_t* const data_;
  const uint64_t size_;
  uint64_t location_ = 0;
  uint64_t values_ = 0;
  uint64_t missing_bytes_ = 0;
  int depth_ = 0;                       // The message itself is the first level, not a container.
  uint64_t left_[kDeepestNesting + 1];  // Values still to come at each level.
};

template <typename T>
bool IsEmptyList(const EncodableValue& value) {
  const auto* list = value.GetIf<std::vector<T>>();
  return list && list->empty();
}

// Decoders align after the size of an empty typed list, encoders do not.
bool IsEmptyAligned(const EncodableValue& value) {
  return IsEmptyList<int32_t>(value) || IsEmptyList<int64_t>(value) || IsEmptyList<double>(value) ||
         IsEmptyList<float>(value);
}

}  // namespace

const char* FindInadmissible(const uint8_t* data, size_t size) { return Scan(data, size).Run(); }

const char* FindInadmissible(const EncodableValue& value, Surroundings around, bool* needs_bytes) {
  const char* fault = nullptr;
  details::Walk(value, [&](const EncodableValue& node, size_t depth) {
    const bool is_container = node.Is<EncodableList>() || node.Is<EncodableMap>();
    if (is_container && around.levels + depth >= kDeepestNesting) fault = kTooDeep;
    if (++around.values > kMaxValues) fault = kTooMany;
    if (IsEmptyAligned(node)) *needs_bytes = true;
    return !fault;
  });
  return fault;
}

}  // namespace cw
