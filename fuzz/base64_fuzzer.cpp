// Base64 against Qt's, both ways, and its variants against each other.
#include <QByteArray>

#include "forge/base64.h"
#include "forge/base64_variants.h"
#include "fuzz/input.h"

namespace base64 = forge::base64;
using forge::Buffer;

constexpr std::size_t kAlignments = 64;
constexpr char kUntouched = '\xA5';

// What a call left of memory in which it had `size` bytes for its output, `shift` bytes behind the
// first; nothing for a false verdict. The bytes around the output stay as they are.
template <typename Call>
static std::string Written(std::size_t size, std::size_t shift, Call&& call) {
  std::string memory(shift + size + kAlignments, kUntouched);
  const bool verdict = call(memory.data() + shift);
  assert(memory.compare(0, shift, std::string(shift, kUntouched)) == 0);
  assert(memory.compare(shift + size, kAlignments, std::string(kAlignments, kUntouched)) == 0);
  return verdict ? memory.substr(shift, size) : std::string();
}

// Every variant, with input and output at the given distances from where memory is aligned.
static void Compare(const std::string& input, std::size_t from, std::size_t to) {
  std::vector<char> memory(from + input.size());  // It ends where the input ends.
  std::copy(input.begin(), input.end(), memory.begin() + static_cast<std::ptrdiff_t>(from));
  const char* const text = memory.data() + from;
  const auto* const bytes = reinterpret_cast<const uint8_t*>(text);
  const auto encode = [&](const base64::Variant& variant) {
    return Written(base64::EncodedSize(input.size()), to, [&](char* out) {
      base64::Encode(variant, bytes, input.size(), out);
      return true;
    });
  };
  const auto decode = [&](const base64::Variant& variant) {
    return Written(base64::DecodedSize(text, input.size()), to, [&](char* out) {
      return base64::Decode(variant, text, input.size(), reinterpret_cast<uint8_t*>(out));
    });
  };
  const base64::Variant& plain = *std::rbegin(base64::kVariants);
  for (const auto& variant : base64::kVariants) {
    if (!variant.is_supported()) continue;
    assert(encode(variant) == encode(plain));
    assert(decode(variant) == decode(plain));
  }
}

void fuzz::Run(const Buffer& input) {
  const uint8_t* data = input.GetData();
  const std::string bytes(data, data + input.GetSize());
  const auto text = QByteArray::fromStdString(bytes);
  std::string encoded = input.ToBase64();
  assert(encoded == text.toBase64().toStdString());
  assert(Buffer::FromBase64(encoded) == input);

  // Qt takes any text; it was canonical if what it holds encodes to it.
  const QByteArray held = QByteArray::fromBase64(text);
  Buffer expected;
  if (held.toBase64() == text) expected = Buffer({held.begin(), held.end()});
  assert(Buffer::FromBase64(bytes) == expected);

  // The last bytes tell the alignments, and where the encoded text is damaged and how.
  if (bytes.size() < 4) return;
  const uint8_t* const choice = data + bytes.size() - 4;
  Compare(bytes, choice[0] % kAlignments, choice[1] % kAlignments);
  Compare(encoded, choice[0] % kAlignments, choice[1] % kAlignments);
  encoded[choice[2] * 5 % encoded.size()] = static_cast<char>(choice[3]);
  Compare(encoded, choice[1] % kAlignments, choice[0] % kAlignments);
}
