// Base64 beside libmodpbase64, Qt's QByteArray and, as the ceiling, memcpy of the text into memory
// that is there already. Every codec allocates its result, as callers get it; each variant of ours
// that the processor supports writes to memory that is there already, too. A benchmark's name is
// operation/who/bytes of data; rates are bytes of text a second.
#include <benchmark/benchmark.h>
#include <modp_b64.h>

#include <cstring>
#include <string>
#include <vector>

#include <QByteArray>

#include "forge/base64.h"
#include "forge/base64_variants.h"
#include "forge/buffer.h"

namespace base64 = forge::base64;

namespace {

// Noise, so that no branch and no table row is easy to predict.
std::vector<uint8_t> BytesOf(const benchmark::State& state) {
  std::vector<uint8_t> bytes(static_cast<std::size_t>(state.range()));
  uint32_t noise = 1;
  for (auto& byte : bytes) {
    noise = noise * 1664525u + 1013904223u;
    byte = static_cast<uint8_t>(noise >> 24);
  }
  return bytes;
}

std::string TextOf(const benchmark::State& state) {
  return forge::Buffer(BytesOf(state)).ToBase64();
}

void CountText(benchmark::State& state, std::size_t length) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(length));
}

void EncodeTavo(benchmark::State& state) {
  const forge::Buffer buffer(BytesOf(state));
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(buffer.ToBase64());
  CountText(state, buffer.ToBase64().size());
}

void EncodeVariant(benchmark::State& state, const base64::Variant& variant) {
  const auto bytes = BytesOf(state);
  std::string text(base64::EncodedSize(bytes.size()), '\0');
  for ([[maybe_unused]] auto _ : state) {
    base64::Encode(variant, bytes.data(), bytes.size(), text.data());
    benchmark::DoNotOptimize(text.data());
    benchmark::ClobberMemory();
  }
  CountText(state, text.size());
}

void EncodeModp(benchmark::State& state) {
  const auto bytes = BytesOf(state);
  const char* data = reinterpret_cast<const char*>(bytes.data());
  std::size_t length = 0;
  for ([[maybe_unused]] auto _ : state) {
    std::string text(modp_b64_encode_len(bytes.size()), '\0');
    length = modp_b64_encode(text.data(), data, bytes.size());
    text.resize(length);
    benchmark::DoNotOptimize(text);
  }
  CountText(state, length);
}

void EncodeQt(benchmark::State& state) {
  const auto bytes = BytesOf(state);
  const QByteArray array(reinterpret_cast<const char*>(bytes.data()),
                         static_cast<int>(bytes.size()));
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(array.toBase64());
  CountText(state, static_cast<std::size_t>(array.toBase64().size()));
}

void DecodeTavo(benchmark::State& state) {
  const std::string text = TextOf(state);
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(forge::Buffer::FromBase64(text));
  CountText(state, text.size());
}

void DecodeVariant(benchmark::State& state, const base64::Variant& variant) {
  const std::string text = TextOf(state);
  auto bytes = BytesOf(state);
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(base64::Decode(variant, text.data(), text.size(), bytes.data()));
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
  CountText(state, text.size());
}

void DecodeModp(benchmark::State& state) {
  const std::string text = TextOf(state);
  for ([[maybe_unused]] auto _ : state) {
    std::vector<uint8_t> bytes(modp_b64_decode_len(text.size()));
    char* data = reinterpret_cast<char*>(bytes.data());
    bytes.resize(modp_b64_decode(data, text.data(), text.size()));
    benchmark::DoNotOptimize(bytes);
  }
  CountText(state, text.size());
}

void DecodeQt(benchmark::State& state) {
  const std::string text = TextOf(state);
  const QByteArray array(text.data(), static_cast<int>(text.size()));
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(QByteArray::fromBase64(array));
  CountText(state, text.size());
}

void Copy(benchmark::State& state) {
  const std::string text = TextOf(state);
  std::vector<char> copy(text.size());
  for ([[maybe_unused]] auto _ : state) {
    std::memcpy(copy.data(), text.data(), text.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  CountText(state, text.size());
}

void Sizes(benchmark::internal::Benchmark* bench) {
  for (const int64_t size : {48, 1 << 10, 64 << 10, 16 << 20}) bench->Arg(size);
}

using VariantBenchmark = void(benchmark::State&, const base64::Variant&);

void RegisterVariants(const std::string& operation, VariantBenchmark* function) {
  for (const auto& variant : base64::kVariants) {
    if (!variant.is_supported()) continue;
    const std::string name = operation + "/" + variant.name;
    benchmark::RegisterBenchmark(name.c_str(), function, variant)->Apply(Sizes);
  }
}

BENCHMARK(EncodeTavo)->Name("base64_encode/tavo")->Apply(Sizes);
BENCHMARK(EncodeModp)->Name("base64_encode/libmodpbase64")->Apply(Sizes);
BENCHMARK(EncodeQt)->Name("base64_encode/QByteArray")->Apply(Sizes);
BENCHMARK(Copy)->Name("base64_encode/memcpy")->Apply(Sizes);
BENCHMARK(DecodeTavo)->Name("base64_decode/tavo")->Apply(Sizes);
BENCHMARK(DecodeModp)->Name("base64_decode/libmodpbase64")->Apply(Sizes);
BENCHMARK(DecodeQt)->Name("base64_decode/QByteArray")->Apply(Sizes);
BENCHMARK(Copy)->Name("base64_decode/memcpy")->Apply(Sizes);

}  // namespace

int main(int argc, char** argv) {
  RegisterVariants("base64_encode", EncodeVariant);
  RegisterVariants("base64_decode", DecodeVariant);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
