// The standard codec beside other binary formats with dynamic values, and beside the limits: a copy
// of the bytes into memory that is there already, and a copy of the same tree.
//
// Encode: an owned tree to a fresh buffer. Decode: bytes to a fresh owned tree, its destruction
// included. Every peer holds the same tree in its own types. A benchmark's name is
// operation/who/workload.
#include <benchmark/benchmark.h>
#include <google/protobuf/struct.pb.h>
#include <malloc.h>

#include <cstring>
#include <functional>
#include <memory>
#include <msgpack.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>

#include "cw/encodable_value.h"

namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

// ---- Workloads ----------------------------------------------------------------------------------

EncodableValue SmallRequest() {
  return EncodableMap{
      {"jsonrpc", "2.0"},
      {"id", "id537_1"},
      {"method", "camera.open"},
      {"params",
       EncodableMap{
           {"device", 1}, {"width", 1920}, {"height", 1080}, {"fps", 29.97}, {"name", "back"}}}};
}

EncodableValue Records() {
  EncodableList records;
  for (int32_t i = 0; i < 1000; ++i) {
    records.push_back(EncodableMap{{"id", i},
                                   {"name", "record " + std::to_string(i)},
                                   {"score", 0.5 * i},
                                   {"active", i % 2 == 0},
                                   {"stamp", int64_t{1700000000000} + i},
                                   {"parent", EncodableValue()}});
  }
  return records;
}

EncodableValue Doubles() {
  std::vector<double> doubles(1000000);
  for (size_t i = 0; i < doubles.size(); ++i) doubles[i] = 0.1 * static_cast<double>(i);
  return doubles;
}

EncodableValue Bytes() {
  std::vector<uint8_t> bytes(1 << 20);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7);
  return bytes;
}

EncodableValue Texts() {
  EncodableMap texts;
  for (int i = 0; i < 1000; ++i) {
    const std::string number = std::to_string(i);
    texts.emplace("key " + std::string(8 - number.size(), '0') + number,
                  std::string(40 - number.size(), 'v') + number);
  }
  return texts;
}

// ---- The same tree in the peers' types ----------------------------------------------------------

template <typename... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
template <typename... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

// Calls one of the three for every kind of value that the workloads hold.
template <typename Scalar, typename List, typename Map>
void Describe(const EncodableValue& value, Scalar scalar, List list, Map map) {
  value.Visit(Overloaded{
      [&](const EncodableList& values) { list(values); },
      [&](const EncodableMap& values) { map(values); },
      [&](const std::vector<double>& values) { list(EncodableList(values.begin(), values.end())); },
      [](const cw::CustomEncodableValue&) {}, [&](const auto& plain) { scalar(plain); }});
}

struct Msgpack {
  struct Tree {
    msgpack::zone zone;
    msgpack::object root;
  };

  static msgpack::object Convert(const EncodableValue& value, msgpack::zone& zone) {
    msgpack::object object;
    const auto allocate = [&zone](auto* kind, size_t count) {
      using T = std::remove_pointer_t<decltype(kind)>;
      return static_cast<T*>(zone.allocate_align(sizeof(T) * count, alignof(T)));
    };
    Describe(
        value,
        [&](const auto& plain) {
          using T = std::decay_t<decltype(plain)>;
          if constexpr (std::is_same_v<T, std::monostate>) {
            object = msgpack::object(msgpack::type::nil_t());
          } else {
            object = msgpack::object(plain, zone);
          }
        },
        [&](const EncodableList& list) {
          object.type = msgpack::type::ARRAY;
          object.via.array.size = static_cast<uint32_t>(list.size());
          object.via.array.ptr = allocate(static_cast<msgpack::object*>(nullptr), list.size());
          auto* at = object.via.array.ptr;
          for (const auto& element : list) new (at++) msgpack::object(Convert(element, zone));
        },
        [&](const EncodableMap& map) {
          object.type = msgpack::type::MAP;
          object.via.map.size = static_cast<uint32_t>(map.size());
          object.via.map.ptr = allocate(static_cast<msgpack::object_kv*>(nullptr), map.size());
          auto* at = object.via.map.ptr;
          for (const auto& [key, mapped] : map) {
            at->key = Convert(key, zone);
            at++->val = Convert(mapped, zone);
          }
        });
    return object;
  }

  static std::shared_ptr<Tree> Make(const EncodableValue& value) {
    auto tree = std::make_shared<Tree>();
    tree->root = Convert(value, tree->zone);
    return tree;
  }
  static msgpack::sbuffer Encode(const std::shared_ptr<Tree>& tree) {
    msgpack::sbuffer buffer;
    msgpack::pack(buffer, tree->root);
    return buffer;
  }
  static msgpack::object_handle Decode(const msgpack::sbuffer& bytes) {
    return msgpack::unpack(bytes.data(), bytes.size());
  }
};

struct Nlohmann {
  using Json = nlohmann::json;

  static Json Make(const EncodableValue& value) {
    Json json;
    Describe(
        value,
        [&](const auto& plain) {
          using T = std::decay_t<decltype(plain)>;
          if constexpr (std::is_same_v<T, std::vector<uint8_t>>) {
            json = Json::binary(plain);
          } else if constexpr (std::is_constructible_v<Json, T>) {
            json = plain;
          }
        },
        [&](const EncodableList& list) {
          json = Json::array();
          for (const auto& element : list) json.push_back(Make(element));
        },
        [&](const EncodableMap& map) {
          json = Json::object();
          for (const auto& [key, mapped] : map) json[key.Get<std::string>()] = Make(mapped);
        });
    return json;
  }
};

struct NlohmannMsgpack : Nlohmann {
  static std::vector<uint8_t> Encode(const Json& tree) { return Json::to_msgpack(tree); }
  static Json Decode(const std::vector<uint8_t>& bytes) { return Json::from_msgpack(bytes); }
};

struct NlohmannCbor : Nlohmann {
  static std::vector<uint8_t> Encode(const Json& tree) { return Json::to_cbor(tree); }
  static Json Decode(const std::vector<uint8_t>& bytes) { return Json::from_cbor(bytes); }
};

struct QtCbor {
  static QCborValue Make(const EncodableValue& value) {
    QCborValue cbor(nullptr);
    Describe(
        value,
        [&](const auto& plain) {
          using T = std::decay_t<decltype(plain)>;
          if constexpr (std::is_same_v<T, std::vector<uint8_t>>) {
            cbor = QByteArray(reinterpret_cast<const char*>(plain.data()),
                              static_cast<int>(plain.size()));
          } else if constexpr (std::is_same_v<T, std::string>) {
            cbor = QString::fromStdString(plain);
          } else if constexpr (std::is_same_v<T, int64_t>) {
            cbor = static_cast<qint64>(plain);
          } else if constexpr (std::is_arithmetic_v<T>) {
            cbor = plain;
          }
        },
        [&](const EncodableList& list) {
          QCborArray array;
          for (const auto& element : list) array.append(Make(element));
          cbor = array;
        },
        [&](const EncodableMap& map) {
          QCborMap object;
          for (const auto& [key, mapped] : map) {
            object.insert(QString::fromStdString(key.Get<std::string>()), Make(mapped));
          }
          cbor = object;
        });
    return cbor;
  }
  static QByteArray Encode(QCborValue tree) { return tree.toCbor(); }  // toCbor is not const.
  static QCborValue Decode(const QByteArray& bytes) { return QCborValue::fromCbor(bytes); }
};

// All numbers are doubles, and there are no bytes.
struct Protobuf {
  using Value = google::protobuf::Value;

  static void Convert(const EncodableValue& value, Value* out) {
    Describe(
        value,
        [&](const auto& plain) {
          using T = std::decay_t<decltype(plain)>;
          if constexpr (std::is_same_v<T, std::string>) {
            out->set_string_value(plain);
          } else if constexpr (std::is_same_v<T, bool>) {
            out->set_bool_value(plain);
          } else if constexpr (std::is_arithmetic_v<T>) {
            out->set_number_value(static_cast<double>(plain));
          } else {
            out->set_null_value(google::protobuf::NULL_VALUE);
          }
        },
        [&](const EncodableList& list) {
          auto* elements = out->mutable_list_value();
          for (const auto& element : list) Convert(element, elements->add_values());
        },
        [&](const EncodableMap& map) {
          auto& fields = *out->mutable_struct_value()->mutable_fields();
          for (const auto& [key, mapped] : map) Convert(mapped, &fields[key.Get<std::string>()]);
        });
  }

  static Value Make(const EncodableValue& value) {
    Value tree;
    Convert(value, &tree);
    return tree;
  }
  static std::string Encode(const Value& tree) { return tree.SerializeAsString(); }
  static Value Decode(const std::string& bytes) {
    Value tree;
    tree.ParseFromString(bytes);
    return tree;
  }
};

struct Tavo {
  static EncodableValue Make(const EncodableValue& value) { return value; }
  static forge::Buffer Encode(const EncodableValue& tree) { return tree.Serialize(); }
  static EncodableValue Decode(const forge::Buffer& bytes) {
    return EncodableValue::Deserialize(bytes);
  }
};

// ---- Benchmarks ---------------------------------------------------------------------------------

struct Workload {
  const char* name;
  EncodableValue (*make)();
};

template <typename Run>
void Register(const char* operation, const char* who, const Workload& workload, Run run) {
  const std::string name = std::string(operation) + "/" + who + "/" + workload.name;
  benchmark::RegisterBenchmark(
      name.c_str(), [run, workload](benchmark::State& state) { run(state, workload.make()); });
}

template <typename Codec>
void RegisterCodec(const char* who, const Workload& workload) {
  Register("encode", who, workload, [](benchmark::State& state, const EncodableValue& value) {
    const auto tree = Codec::Make(value);
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(Codec::Encode(tree));
  });
  Register("decode", who, workload, [](benchmark::State& state, const EncodableValue& value) {
    const auto bytes = Codec::Encode(Codec::Make(value));
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(Codec::Decode(bytes));
  });
}

void CopyTree(benchmark::State& state, const EncodableValue& value) {
  for ([[maybe_unused]] auto _ : state) {
    EncodableValue copy(value);
    benchmark::DoNotOptimize(copy);
  }
}

void CopyBytes(benchmark::State& state, const EncodableValue& value) {
  const auto bytes = value.Serialize();
  std::vector<uint8_t> copy(bytes.GetSize());
  for ([[maybe_unused]] auto _ : state) {
    std::memcpy(copy.data(), bytes.GetData(), bytes.GetSize());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
}

void RegisterWorkload(const Workload& workload) {
  RegisterCodec<Tavo>("tavo", workload);
  RegisterCodec<Msgpack>("msgpack-cxx", workload);
  RegisterCodec<NlohmannMsgpack>("nlohmann MessagePack", workload);
  RegisterCodec<NlohmannCbor>("nlohmann CBOR", workload);
  RegisterCodec<QtCbor>("QCborValue", workload);
  if (workload.make != Bytes) RegisterCodec<Protobuf>("protobuf Struct", workload);
  for (const char* operation : {"encode", "decode"}) {
    Register(operation, "tree copy", workload, CopyTree);
    Register(operation, "memcpy", workload, CopyBytes);
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Freed memory stays with the process: otherwise whoever runs after a large allocation, or before
  // it, pays for pages that the kernel takes and gives.
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
  mallopt(M_TRIM_THRESHOLD, 512 << 20);
  for (const Workload& workload :
       {Workload{"small request", SmallRequest}, Workload{"1000 maps of 6", Records},
        Workload{"1000000 doubles", Doubles}, Workload{"1 MiB of bytes", Bytes},
        Workload{"map of 1000 texts", Texts}}) {
    RegisterWorkload(workload);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
