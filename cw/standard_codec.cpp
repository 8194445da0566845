// The standard serializer.
//
// The format's rules are written once, as templates over the stream. The default serializer walks
// trees of any depth, directly on the library's own buffer streams. An extension is called for each
// nested value through the virtual operations, and recurses. The choice is made once, at the
// outermost value.
#include <algorithm>
#include <cassert>
#include <cstring>
#include <forward_list>
#include <iostream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>

#include "cw/encoded_type.h"
#include "cw/standard_codec_serializer.h"
#include "cw/value_tree.h"

namespace cw {
namespace {

constexpr uint32_t kTooManyElements = 1u << 26;  // Elements of a list that 32 bits cannot address.

EncodedType EncodedTypeForValue(const EncodableValue& value) {
  static constexpr EncodedType kTypes[] = {
      EncodedType::kNull,        EncodedType::kFalse,      EncodedType::kInt32,
      EncodedType::kInt64,       EncodedType::kFloat64,    EncodedType::kString,
      EncodedType::kUInt8List,   EncodedType::kInt32List,  EncodedType::kInt64List,
      EncodedType::kFloat64List, EncodedType::kList,       EncodedType::kMap,
      EncodedType::kCustom,      EncodedType::kFloat32List};
  const size_t index = value.GetIndex();
  const EncodedType type = index < std::size(kTypes) ? kTypes[index] : EncodedType::kCustom;
  if (type == EncodedType::kCustom) assert(false);
  return type == EncodedType::kFalse && *value.GetIf<bool>() ? EncodedType::kTrue : type;
}

// ---- Writing ------------------------------------------------------------------------------------

// The stream of size fields and numbers is any class with WriteByte and WriteBytes.
template <typename T, typename Stream>
void WriteNumber(T number, Stream& stream) {
  stream.WriteBytes(reinterpret_cast<const uint8_t*>(&number), sizeof number);
}

template <typename Stream>
void WriteSizeTo(size_t size, Stream& stream) {
  if (size < kFirstLongSize) {
    stream.WriteByte(static_cast<uint8_t>(size));
  } else if (size < kFirstHugeSize) {
    stream.WriteByte(kSize16Marker);
    WriteNumber(static_cast<uint16_t>(size), stream);
  } else if (size <= std::numeric_limits<uint32_t>::max()) {
    stream.WriteByte(kSize32Marker);
    WriteNumber(static_cast<uint32_t>(size), stream);
  } else {
    throw std::length_error("value is too large to encode");
  }
}

// A writer takes type bytes (alone, with a number, or with a size), alignment, and at least one
// byte at a time. This writer is for any stream.
class StreamWriter {
 public:
  explicit StreamWriter(ByteStreamWriter* stream) : stream_(*stream) {}

  void WriteType(EncodedType type) { stream_.WriteByte(static_cast<uint8_t>(type)); }
  template <typename T>
  void WriteScalar(EncodedType type, T number) {
    WriteType(type);
    WriteNumber(number, stream_);
  }
  void WriteHead(EncodedType type, size_t size) {
    WriteType(type);
    WriteSizeTo(size, stream_);
  }
  void WriteAlignment(uint8_t alignment) { stream_.WriteAlignment(alignment); }
  void WriteBytes(const uint8_t* data, size_t size) { stream_.WriteBytes(data, size); }

 private:
  ByteStreamWriter& stream_;
};

// This writer is for the library's own buffer. It collects small pieces in a block.
class BlockWriter {
 public:
  explicit BlockWriter(ByteBufferStreamWriter* stream)
      : stream_(stream), buffer_(*stream->GetBuffer()), flushed_(buffer_.GetSize()) {}

  void WriteType(EncodedType type) { WriteByte(static_cast<uint8_t>(type)); }

  template <typename T>
  void WriteScalar(EncodedType type, T number) {
    uint8_t* room = Extend(1 + sizeof number);
    *room = static_cast<uint8_t>(type);
    std::memcpy(room + 1, &number, sizeof number);
  }

  void WriteHead(EncodedType type, size_t size) {
    if (size >= kFirstLongSize) {
      WriteType(type);
      return WriteSizeTo(size, *this);
    }
    uint8_t* room = Extend(2);
    room[0] = static_cast<uint8_t>(type);
    room[1] = static_cast<uint8_t>(size);
  }

  void WriteByte(uint8_t byte) { *Extend(1) = byte; }

  void WriteBytes(const uint8_t* data, size_t size) {
    if (size <= sizeof block_ / 2) return Copy(Extend(size), data, size);
    Flush();
    MakeRoom(size + sizeof block_);  // With room for the next block: large data is not moved again.
    Append(data, size);
  }

  void WriteAlignment(uint8_t alignment) {
    const size_t beyond = (flushed_ + used_) % alignment;
    if (beyond == 0) return;
    std::memset(Extend(sizeof(uint64_t)), 0, sizeof(uint64_t));  // A fixed size needs no call.
    used_ -= sizeof(uint64_t) - (alignment - beyond);
  }

  void Flush() {
    Append(block_, used_);
    used_ = 0;
  }

  // Calls `write` with the stream, after the block was written.
  template <typename Write>
  void WriteThrough(const Write& write) {
    Flush();
    write(stream_);
    flushed_ = buffer_.GetSize();
  }

 private:
  // Short data, such as most texts, is copied in two overlapping halves: a call would cost more.
  static void Copy(uint8_t* to, const uint8_t* from, size_t size) {
    if (size > 2 * sizeof(uint64_t)) {
      std::memcpy(to, from, size);
    } else if (size >= sizeof(uint64_t)) {
      CopyHalves<uint64_t>(to, from, size);
    } else if (size >= sizeof(uint32_t)) {
      CopyHalves<uint32_t>(to, from, size);
    } else {
      to[0] = from[0];
      to[size / 2] = from[size / 2];
      to[size - 1] = from[size - 1];
    }
  }

  template <typename Half>
  static void CopyHalves(uint8_t* to, const uint8_t* from, size_t size) {
    std::memcpy(to, from, sizeof(Half));
    std::memcpy(to + size - sizeof(Half), from + size - sizeof(Half), sizeof(Half));
  }

  uint8_t* Extend(size_t size) {
    if (size > sizeof block_ - used_) Flush();
    uint8_t* room = block_ + used_;
    used_ += size;
    return room;
  }

  // The buffer grows to three times its size. With a factor of two, the freed memory adds up to
  // more than the last allocation, and glibc gives it back to the system with every large message.
  // glibc always gives back the largest blocks: for those the unused capacity costs more than a
  // reallocation, so they grow by half.
  void MakeRoom(size_t size) {
    constexpr size_t kLarge = size_t{16} << 20;
    if (size <= buffer_.GetCapacity() - flushed_) return;
    const uint64_t more = flushed_ < kLarge ? 2 * uint64_t{flushed_} : flushed_ / 2;
    const uint64_t ample = std::min<uint64_t>(flushed_ + more, PTRDIFF_MAX);
    buffer_.Reserve(std::max(flushed_ + size, static_cast<size_t>(ample)));
  }

  void Append(const uint8_t* data, size_t size) {
    MakeRoom(size);
    buffer_.WriteBytes(data, size);
    flushed_ += size;
  }

  ByteBufferStreamWriter* const stream_;
  forge::Buffer& buffer_;
  size_t flushed_;   // The number of bytes in the buffer.
  size_t used_ = 0;  // The number of bytes in the block.
  uint8_t block_[4096];
};

// Writes a text or a typed list: the count, and the elements as they are in memory.
template <typename Sequence, typename Writer>
void WriteBlock(EncodedType type, const Sequence& elements, Writer& writer) {
  constexpr size_t kWidth = sizeof(typename Sequence::value_type);
  writer.WriteHead(type, elements.size());
  if (elements.empty()) return;
  if constexpr (kWidth > 1) writer.WriteAlignment(kWidth);
  writer.WriteBytes(reinterpret_cast<const uint8_t*>(elements.data()), elements.size() * kWidth);
}

// Writes a value; of a list or a map the type and the count. `write_held` writes its values.
template <typename Writer, typename WriteHeld>
void WriteTagged(const EncodableValue& value, Writer& writer, const WriteHeld& write_held) {
  const EncodedType type = EncodedTypeForValue(value);
  switch (type) {
    case EncodedType::kNull:
    case EncodedType::kTrue:
    case EncodedType::kFalse:
    case EncodedType::kLargeInteger:
      return writer.WriteType(type);
    case EncodedType::kInt32:
      return writer.WriteScalar(type, *value.GetIf<int32_t>());
    case EncodedType::kInt64:
      return writer.WriteScalar(type, *value.GetIf<int64_t>());
    case EncodedType::kFloat64:
      writer.WriteType(type);
      writer.WriteAlignment(sizeof(double));
      return WriteNumber(*value.GetIf<double>(), writer);
    case EncodedType::kString:
      return WriteBlock(type, *value.GetIf<std::string>(), writer);
    case EncodedType::kUInt8List:
      return WriteBlock(type, *value.GetIf<std::vector<uint8_t>>(), writer);
    case EncodedType::kInt32List:
      return WriteBlock(type, *value.GetIf<std::vector<int32_t>>(), writer);
    case EncodedType::kInt64List:
      return WriteBlock(type, *value.GetIf<std::vector<int64_t>>(), writer);
    case EncodedType::kFloat64List:
      return WriteBlock(type, *value.GetIf<std::vector<double>>(), writer);
    case EncodedType::kFloat32List:
      return WriteBlock(type, *value.GetIf<std::vector<float>>(), writer);
    case EncodedType::kList: {
      const auto& list = *value.GetIf<EncodableList>();
      writer.WriteHead(type, list.size());
      return write_held(list);
    }
    case EncodedType::kMap: {
      const auto& map = *value.GetIf<EncodableMap>();
      writer.WriteHead(type, map.size());
      return write_held(map);
    }
    case EncodedType::kCustom:  // Only in builds without assertions.
      writer.WriteType(type);
      std::cerr << "Unhandled custom type in StandardCodecSerializer::WriteValue. "
                   "Custom types require codec extensions.\n"
                << std::flush;
      return;
  }
}

template <typename WriteNested>
void ForEachHeld(const EncodableList& list, const WriteNested& write_nested) {
  for (const EncodableValue& element : list) write_nested(element);
}
template <typename WriteNested>
void ForEachHeld(const EncodableMap& map, const WriteNested& write_nested) {
  for (const auto& [key, mapped] : map) {
    write_nested(key);
    write_nested(mapped);
  }
}

// Writes a tree of any depth: the encoding is its nodes in the order of a walk.
void WriteDeepTree(const EncodableValue& value, ByteStreamWriter* stream) {
  StreamWriter writer(stream);
  details::Walk(value, [&writer](const EncodableValue& node, size_t) {
    WriteTagged(node, writer, [](const auto&) {});
    return true;
  });
}

// Quicker, for the first levels, of which most trees have no more.
void WriteTree(const EncodableValue& value, BlockWriter& writer, size_t depth = 0) {
  WriteTagged(value, writer, [&writer, depth](const auto& held) {
    if (depth < details::kNearLevels) {
      ForEachHeld(held, [&writer, depth](const EncodableValue& nested) {
        WriteTree(nested, writer, depth + 1);
      });
    } else {
      writer.WriteThrough([&held](ByteStreamWriter* stream) {
        ForEachHeld(held,
                    [stream](const EncodableValue& nested) { WriteDeepTree(nested, stream); });
      });
    }
  });
}

// ---- Reading ------------------------------------------------------------------------------------

// Converts to what `make` returns, so that containers build their elements in place.
template <typename Make>
struct InPlace {
  const Make& make;
  operator EncodableValue() const { return make(); }  // NOLINT(google-explicit-constructor)
};
template <typename Make>
InPlace(const Make&) -> InPlace<Make>;

template <typename T, typename Reader>
T ReadNumber(Reader& reader) {
  T number = 0;
  reader.ReadBytes(reinterpret_cast<uint8_t*>(&number), sizeof number);
  return number;
}

template <typename Reader>
[[gnu::noinline]] uint32_t ReadLongSize(uint8_t marker, Reader& reader) {
  if (marker == kSize16Marker) return ReadNumber<uint16_t>(reader);
  return ReadNumber<uint32_t>(reader);
}

template <typename Reader>
uint32_t ReadSizeFrom(Reader& reader) {
  const uint8_t size = reader.ReadByte();
  return size < kFirstLongSize ? size : ReadLongSize(size, reader);
}

// The largest number of elements that a stream can hold; 0 if that is unknown.
size_t GetRoom(const ByteBufferStreamReader& reader) { return reader.GetRemaining(); }
size_t GetRoom(const ByteStreamReader& reader) {
  const auto* const ours = dynamic_cast<const ByteBufferStreamReader*>(&reader);
  return ours ? GetRoom(*ours) : 0;
}

// Reads a text or a typed list. Bytes that are properly aligned in memory are copied without
// filling the list with zeros first (the containers copy bytes, whatever their declared type is).
// Otherwise the list is filled with zeros and then with the bytes, if there are any. The reader
// also aligns after the size of an empty list, which the writer does not; the format is kept so.
template <typename Sequence, typename Reader>
EncodableValue ReadBlock(Reader& reader) {
  using Element = typename Sequence::value_type;
  const uint32_t count = ReadSizeFrom(reader);
  if constexpr (sizeof(Element) > 1) reader.ReadAlignment(sizeof(Element));
  if constexpr (std::is_same_v<Reader, ByteBufferStreamReader>) {
    const uint8_t* data = reader.PeekBytes(uint64_t{count} * sizeof(Element));
    if (data && reinterpret_cast<uintptr_t>(data) % alignof(Element) == 0) {
      reader.TakeBytes(uint64_t{count} * sizeof(Element));
      const auto* first = reinterpret_cast<const Element*>(data);
      return EncodableValue(std::in_place_type<Sequence>, first, first + count);
    }
  }
  Sequence elements(count, Element{});
  Element none{};  // Stands for the data of an empty list, which may be null.
  reader.ReadBytes(reinterpret_cast<uint8_t*>(elements.empty() ? &none : elements.data()),
                   elements.size() * sizeof(Element));
  return elements;
}

template <typename Reader>
uint32_t ReadElementCount(Reader& reader) {
  const uint32_t count = ReadSizeFrom(reader);
  if (count >= kTooManyElements) throw std::length_error("vector::reserve");
  return count;
}

template <typename Reader, typename ReadNested>
[[gnu::noinline]] EncodableValue ReadList(Reader& reader, const ReadNested& read_nested) {
  const uint32_t count = ReadElementCount(reader);
  EncodableList list;
  list.reserve(std::min<size_t>(count, GetRoom(reader)));  // The declared count may be too large.
  for (uint32_t i = 0; i < count; ++i) list.emplace_back(InPlace{read_nested});
  return list;
}

template <typename Reader, typename ReadNested>
[[gnu::noinline]] EncodableValue ReadMap(Reader& reader, const ReadNested& read_nested) {
  const uint32_t count = ReadSizeFrom(reader);
  EncodableMap map;
  // The keys are usually sorted. The first of equal keys stays.
  for (uint32_t i = 0; i < count; ++i) {
    map.emplace_hint(map.end(), std::piecewise_construct, std::tuple(InPlace{read_nested}),
                     std::tuple(InPlace{read_nested}));
  }
  return map;
}

constexpr bool IsContainer(uint8_t type) {
  return type == static_cast<uint8_t>(EncodedType::kList) ||
         type == static_cast<uint8_t>(EncodedType::kMap);
}

// The rare cases are calls: otherwise ReadPayload saves registers for them with every number.
template <typename Sequence, typename Reader>
[[gnu::noinline]] EncodableValue ReadTypedList(Reader& reader) {
  return ReadBlock<Sequence>(reader);
}

[[gnu::noinline]] void ReportUnknownType(uint8_t type) {
  std::cerr << "Unknown type in StandardCodecSerializer::ReadValueOfType: " + std::to_string(type) +
                   "\n"
            << std::flush;
}

// `read_container` reads lists and maps.
template <typename Reader, typename ReadContainer>
EncodableValue ReadPayload(uint8_t type, Reader& reader, const ReadContainer& read_container) {
  switch (static_cast<EncodedType>(type)) {
    case EncodedType::kNull:
      return {};
    case EncodedType::kTrue:
      return true;
    case EncodedType::kFalse:
      return false;
    case EncodedType::kInt32:
      return ReadNumber<int32_t>(reader);
    case EncodedType::kInt64:
      return ReadNumber<int64_t>(reader);
    case EncodedType::kFloat64:
      reader.ReadAlignment(sizeof(double));
      return ReadNumber<double>(reader);
    case EncodedType::kLargeInteger:
    case EncodedType::kString:
      return ReadBlock<std::string>(reader);
    case EncodedType::kUInt8List:
      return ReadTypedList<std::vector<uint8_t>>(reader);
    case EncodedType::kInt32List:
      return ReadTypedList<std::vector<int32_t>>(reader);
    case EncodedType::kInt64List:
      return ReadTypedList<std::vector<int64_t>>(reader);
    case EncodedType::kFloat64List:
      return ReadTypedList<std::vector<double>>(reader);
    case EncodedType::kList:
    case EncodedType::kMap:
      return read_container(static_cast<EncodedType>(type));
    case EncodedType::kFloat32List:
      return ReadTypedList<std::vector<float>>(reader);
    case EncodedType::kCustom:
      break;
  }
  ReportUnknownType(type);
  return {};
}

// Reads lists and maps by calling `read_nested` for each value that they hold.
template <typename Reader, typename ReadNested>
EncodableValue ReadNesting(uint8_t type, Reader& reader, const ReadNested& read_nested) {
  return ReadPayload(type, reader, [&reader, &read_nested](EncodedType container) {
    return container == EncodedType::kList ? ReadList(reader, read_nested)
                                           : ReadMap(reader, read_nested);
  });
}

// Reads a tree with a stack of its own. Values are made in their final place, except those that are
// not yet, or never will be, a part of the tree.
class TreeReader {
 public:
  explicit TreeReader(ByteStreamReader& reader) : reader_(reader) {}

  EncodableValue Read(uint8_t type) {
    EncodableValue root = ReadNode(type);
    if (count_ > 0) Fill(root);
    return root;
  }

 private:
  enum class Role { kPart, kKey, kDuplicate };

  // A list or a map that is being filled.
  struct Level {
    EncodableList* list;
    EncodableMap* map;
    uint32_t left;  // The number of elements or entries that were not read yet.
    Role role;
  };

  void Fill(EncodableValue& root) {
    for (Enter(root, Role::kPart);;) {
      if (level_.left > 0) {
        --level_.left;
        level_.list ? ReadElement() : ReadEntry();
      } else if (path_.GetSize() > 0) {
        const Role done = level_.role;
        level_ = path_.Pop();
        Leave(done);
      } else {
        return;
      }
    }
  }

  // Reads a value; of a list or a map an empty one, with the number of its values in count_.
  EncodableValue ReadNode(uint8_t type) {
    return ReadPayload(type, reader_, [this](EncodedType container) {
      if (container == EncodedType::kMap) {
        count_ = ReadSizeFrom(reader_);
        return EncodableValue(std::in_place_type<EncodableMap>);
      }
      count_ = ReadElementCount(reader_);
      EncodableValue list(std::in_place_type<EncodableList>);
      list.GetIf<EncodableList>()->reserve(std::min<size_t>(count_, GetRoom(reader_)));
      return list;
    });
  }

  EncodableValue ReadNext() { return ReadNode(type_ = reader_.ReadByte()); }

  void ReadElement() {
    EncodableValue& element = level_.list->emplace_back(InPlace{[this] { return ReadNext(); }});
    if (count_ > 0) Descend(element, Role::kPart);
  }

  void Enter(EncodableValue& container, Role role) {
    level_ = {container.GetIf<EncodableList>(), container.GetIf<EncodableMap>(),
              std::exchange(count_, 0), role};
  }

  void Descend(EncodableValue& container, Role role) {
    path_.Push(level_);
    Enter(container, role);
  }

  void ReadEntry() {
    type_ = reader_.ReadByte();
    const auto read_key = [this] { return ReadNode(type_); };
    if (!IsContainer(type_)) return AddEntry(InPlace{read_key});
    apart_.push_front(read_key());
    if (count_ > 0) return Descend(apart_.front(), Role::kKey);
    Leave(Role::kKey);
  }

  // The keys are usually sorted. The first of equal keys stays.
  template <typename Key>
  void AddEntry(Key&& key) {
    EncodableMap& map = *level_.map;
    const size_t before = map.size();
    const auto entry = map.emplace_hint(map.end(), std::piecewise_construct,
                                        std::forward_as_tuple(std::forward<Key>(key)),
                                        std::tuple(InPlace{[this] { return ReadNext(); }}));
    if (count_ == 0) return;
    if (map.size() > before) return Descend(entry->second, Role::kPart);
    apart_.push_front(type_ == static_cast<uint8_t>(EncodedType::kList)
                          ? EncodableValue(std::in_place_type<EncodableList>)
                          : EncodableValue(std::in_place_type<EncodableMap>));
    Descend(apart_.front(), Role::kDuplicate);
  }

  // Called when a value that was read apart is complete, and its map is the current level again.
  void Leave(Role role) {
    if (role == Role::kPart) return;
    EncodableValue value = std::move(apart_.front());
    apart_.pop_front();
    if (role == Role::kKey) AddEntry(std::move(value));
  }

  ByteStreamReader& reader_;
  uint8_t type_ = 0;    // The type of the value that was read last.
  uint32_t count_ = 0;  // Its number of values, if it is a list or a map to be filled.
  Level level_{};
  details::PathStack<Level> path_;           // The levels around level_.
  std::forward_list<EncodableValue> apart_;  // Keys, and values of duplicate keys.
};

// Quicker, for the first levels, of which most trees have no more.
EncodableValue ReadTree(uint8_t type, ByteBufferStreamReader& reader, size_t depth = 0) {
  return ReadNesting(type, reader, [&reader, depth] {
    const uint8_t nested = reader.ReadByte();
    // Texts are the most frequent values, and nearly all keys.
    if (nested == static_cast<uint8_t>(EncodedType::kString)) return ReadBlock<std::string>(reader);
    if (depth < details::kNearLevels) return ReadTree(nested, reader, depth + 1);
    return TreeReader(reader).Read(nested);
  });
}

bool IsPlain(const StandardCodecSerializer& serializer) {
  return typeid(serializer) == typeid(StandardCodecSerializer);
}

}  // namespace

// ---- Serializer ---------------------------------------------------------------------------------

StandardCodecSerializer::StandardCodecSerializer() = default;

StandardCodecSerializer::~StandardCodecSerializer() = default;

const StandardCodecSerializer& StandardCodecSerializer::GetInstance() {
  static const auto& serializer = *new StandardCodecSerializer;
  return serializer;
}

EncodableValue StandardCodecSerializer::ReadValue(ByteStreamReader* stream) const {
  return ReadValueOfType(stream->ReadByte(), stream);
}

void StandardCodecSerializer::WriteValue(const EncodableValue& value,
                                         ByteStreamWriter* stream) const {
  if (!IsPlain(*this)) {
    StreamWriter writer(stream);
    return WriteTagged(value, writer, [this, stream](const auto& held) {
      ForEachHeld(held,
                  [this, stream](const EncodableValue& nested) { WriteValue(nested, stream); });
    });
  }
  if (typeid(*stream) != typeid(ByteBufferStreamWriter)) return WriteDeepTree(value, stream);
  BlockWriter writer(static_cast<ByteBufferStreamWriter*>(stream));
  WriteTree(value, writer);
  writer.Flush();
}

EncodableValue StandardCodecSerializer::ReadValueOfType(uint8_t type,
                                                        ByteStreamReader* stream) const {
  if (!IsPlain(*this)) {
    return ReadNesting(type, *stream, [this, stream] { return ReadValue(stream); });
  }
  if (typeid(*stream) != typeid(ByteBufferStreamReader)) return TreeReader(*stream).Read(type);
  return ReadTree(type, *static_cast<ByteBufferStreamReader*>(stream));
}

void StandardCodecSerializer::WriteSize(uint32_t size, ByteStreamWriter* stream) const {
  WriteSizeTo(size, *stream);
}

uint32_t StandardCodecSerializer::ReadSize(ByteStreamReader* stream) const {
  return ReadSizeFrom(*stream);
}

template <typename T>
EncodableValue StandardCodecSerializer::ReadVector(ByteStreamReader* stream) const {
  return ReadBlock<std::vector<T>>(*stream);
}

template EncodableValue StandardCodecSerializer::ReadVector<uint8_t>(ByteStreamReader*) const;
template EncodableValue StandardCodecSerializer::ReadVector<int32_t>(ByteStreamReader*) const;
template EncodableValue StandardCodecSerializer::ReadVector<int64_t>(ByteStreamReader*) const;
template EncodableValue StandardCodecSerializer::ReadVector<double>(ByteStreamReader*) const;
template EncodableValue StandardCodecSerializer::ReadVector<float>(ByteStreamReader*) const;

}  // namespace cw
