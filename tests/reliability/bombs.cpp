#include "tests/reliability/bombs.h"

#include "cw/admission.h"
#include "flrpc/message.h"
#include "forge/buffer.h"
#include "tests/support/values.h"

namespace test {
namespace {

using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;

constexpr size_t kMiB = size_t{1} << 20;
// A frame may miss 64 MiB of text: then it takes these, and what else it takes to read it.
constexpr int kWithPhantomText = 80;
// As many values as 64 MiB have room for, and what the largest frame may take: 100 bytes a value.
constexpr uint32_t kManyValues = 524288;
constexpr int kWithAllValues = 400;

std::string Times(const std::string& part, size_t count) {
  std::string whole;
  whole.reserve(part.size() * count);
  for (; count > 0; --count) whole += part;
  return whole;
}

std::string Hex(const std::string& digits) {
  const Bytes bytes = FromHex(digits);
  return {bytes.begin(), bytes.end()};
}

std::string FourBytes(uint64_t number) {
  return {static_cast<char>(number), static_cast<char>(number >> 8),
          static_cast<char>(number >> 16), static_cast<char>(number >> 24)};
}

// The head of a text or a container of that many elements.
std::string Declare(const char* tag, uint64_t count) {
  return Hex(tag) + '\xFF' + FourBytes(count);
}

// A notification that the victim would answer, but for its parameters: the bytes given.
std::string CallWith(const std::string& params, const char* method = "poke") {
  const auto text = [](const std::string& word) {
    return Hex("07") + static_cast<char>(word.size()) + word;
  };
  return Hex("0d 03") + text("jsonrpc") + text("2.0") + text("method") + text(method) +
         text("params") + params;
}

// What the parts of a bomb become.
std::string Raw(const std::string& bytes) { return bytes; }
std::string Call(const std::string& params) { return LineOf(CallWith(params)); }
// Nobody answers this one: an echo of what is not there would be the victim's own doing.
std::string Ignored(const std::string& params) { return LineOf(CallWith(params, "ignored")); }

std::string PhantomText() { return Ignored(Declare("07", cw::kMostMissingBytes)); }

// A value of every kind at each place of the envelope.
std::string EveryKindOfMember() {
  std::string lines;
  for (const char* member : {"jsonrpc", "method", "id", "result", "error"}) {
    for (const EncodableValue& kind :
         {EncodableValue(), EncodableValue(true), EncodableValue(-5), EncodableValue(0.5),
          EncodableValue(""), EncodableValue(std::vector<uint8_t>(3)),
          EncodableValue(cw::EncodableList{1, "a"}), EncodableValue(EncodableMap{{1, 2}})}) {
      for (const char* other : {"method", "id", "result", "error"}) {
        EncodableMap members = {{"jsonrpc", "2.0"}, {other, "a"}};
        members.insert_or_assign(member, kind);
        const Bytes bytes = BytesOf(EncodableValue(members).Serialize());
        lines += LineOf({bytes.begin(), bytes.end()});
      }
    }
  }
  return lines;
}

// A map of that many values, next to the envelope's own; no two keys are equal.
std::string LargeMap(uint32_t values) {
  const uint32_t entries = (values - 7) / 2;
  std::string map = Declare("0d", entries);
  for (uint32_t key = 0; key < entries; ++key) map += '\x03' + FourBytes(key) + '\0';
  return map;
}

std::string EveryTagOfMost() {
  std::string lines;
  for (const char* tag : {"05", "07", "08", "09", "0a", "0b", "0c", "0d", "0e"}) {
    lines += Call(Declare(tag, 0xFFFFFFFF));
  }
  return lines;
}

std::string LineWith(const Message& message) { return LineOfText(message.ToBase64()); }

}  // namespace

std::string Bomb::Make() const {
  std::string bytes;
  for (const Part& part : parts) bytes += Times(part.bytes, part.count);
  return wrap(bytes);
}

std::string LineOfText(const std::string& base64) { return "{\"data\":\"" + base64 + "\"}\n"; }

std::string LineOf(const std::string& bytes) {
  return LineOfText(forge::Buffer(Bytes(bytes.begin(), bytes.end())).ToBase64());
}

std::vector<Bomb> GetTextBombs() {
  const std::string block(kMiB, 'x');
  const std::string again = "{\"data\":[\"" + std::string(1000, 'x') + "\"],\"data\":1}\n";
  const std::string surrogates = "{\"data\":\"\\ud800\"}\n{\"\\udfff\":\"\\udfff\\ud800A\"}\n";
  return {
      {"empty lines", Raw, {{"\n", 20000}}},
      {"64 MiB that are no line", Raw, {{block, 64}}, 64, true},
      {"a line of 64 MiB", Raw, {{block, 64}, {"\n"}}, 64, true},
      {"a frame of 64 MiB", LineOfText, {{block, 64}}, 64, true},
      {"NUL bytes", Raw, {{std::string(8 * kMiB, '\0') + '\n'}}},
      {"blanks before a frame", Raw, {{std::string(8 * kMiB, ' ') + LineOf("\x01")}}},
      {"no UTF-8", Raw, {{"{\"data\":\"\xFF\xC0\x80\xED\xA0\x80\xF8\"}\n\xFE\xFF\n", 100}}},
      // JSON.
      {"lists 100,000 deep", Raw, {{"{\"data\":"}, {"[", 100000}, {"]", 100000}, {"}\n"}}},
      {"objects 100,000 deep", Raw, {{"{\"data\":", 100000}, {"1"}, {"}", 100000}, {"\n"}}},
      {"objects 1,000 deep", Raw, {{"{\"data\":", 1000}, {"1"}, {"}", 1000}, {"\n"}}},
      {"millions of empty lists", Raw, {{"{\"data\":["}, {"[],", 8 * kMiB / 3}, {"[]]}\n"}}},
      {"millions of members", Raw, {{"{"}, {"\"\":{},", 8 * kMiB / 6}, {"\"data\":\"\"}\n"}}},
      {"millions of numbers", Raw, {{"{\"data\":["}, {"1,", 4 * kMiB}, {"1]}\n"}}},
      {"keys that come again", Raw, {{again, 20000}}},
      {"blanks, and then no JSON", Raw, {{"{\"a\":[],"}, {"\t", 8 * kMiB}, {"x}\n"}}},
      {"a key with escapes", Raw, {{"{\""}, {"\\u0001", 4 * kMiB / 6}, {"\":[{}]}\n"}}},
      {"a number of 1 MiB", Raw, {{"{\"data\":" + std::string(kMiB, '9') + "}\n"}}},
      {"a text that does not end", Raw, {{"{\"data\":\""}, {"\\\"", kMiB}, {"\n"}}},
      {"lone surrogates", Raw, {{surrogates, 100}}},
      {"NUL in a text", Raw, {{"{\"data\":\"AA\\u0000==\"}\n{\"data\":\"\\u0000\"}\n", 100}}},
      {"no objects", Raw, {{"null\n5\n\"text\"\n[{\"data\":\"AA==\"}]\n{\"data\"}\n", 100}}},
      {"no texts", Raw, {{"{}\n{\"data\":null}\n{\"data\":1e999}\n{\"data\":{}}\n", 100}}},
      // Base64.
      {"wrong padding", LineOfText, {{"AA=A"}}},
      {"padding alone", LineOfText, {{std::string(4 * kMiB, '=')}}},
      {"zeros", LineOfText, {{std::string(4 * kMiB, 'A')}}},
  };
}

std::vector<Bomb> GetValueBombs() {
  const std::string null(1, '\0');
  const std::string deep_key = Times(Hex("0c 01"), 1000) + null + null;
  const std::string texts = Times(Declare("07", cw::kMostMissingBytes / 64), 64);
  const std::string all_values = Declare("0c", cw::kMostValues - 7);
  return {
      {"lists 100,000 deep", Call, {{Hex("0c 01"), 100000}}},
      {"map keys 100,000 deep", Call, {{Hex("0d 01"), 100000}}},
      {"lists as deep as may be", Call, {{Hex("0c 01"), 1022}}},
      {"equal deep keys", Call, {{Hex("0d c8")}, {deep_key, 200}}},
      {"maps as keys of maps", Call, {{Hex("0d 02"), 1000}, {null, 2000}}},
      {"a long list", Ignored, {{Declare("0c", kManyValues - 7)}, {null, kManyValues - 7}}},
      {"a large map", Ignored, {{LargeMap(kManyValues)}}},
      {"the longest list", Ignored, {{all_values}, {null, cw::kMostValues - 7}}, kWithAllValues},
      {"the largest map", Ignored, {{LargeMap(cw::kMostValues)}}, kWithAllValues},
      {"too long a list", Call, {{Declare("0c", cw::kMostValues)}, {null, cw::kMostValues}}},
      {"2^26 - 1 elements", Call, {{Declare("0c", (1u << 26) - 1)}}},
      {"2^26 elements", Call, {{Declare("0c", 1u << 26)}}},
      {"2^32 - 1 of everything", Raw, {{EveryTagOfMost()}}},
      // One frame: each element that is missing is a line of the log.
      {"phantom elements", Ignored, {{Declare("0c", cw::kMostMissingElements)}}},
      // A failed read does not advance: each text reads the next ones.
      {"phantom texts in step", Raw, {{Ignored(Declare("0c", 64) + texts), 2}}, kWithPhantomText},
      {"phantom texts", Raw, {{PhantomText(), 2}}, kWithPhantomText},
  };
}

std::vector<Bomb> GetMessageBombs() {
  const Message::ID id("id7_1");
  const EncodableValue value = EncodableMap{
      {"list", cw::EncodableList{1, 2.5, "three", std::vector<float>(2), EncodableValue()}},
      {"map", EncodableMap{{int64_t{1} << 40, true}, {"bytes", std::vector<uint8_t>(50, 7)}}}};
  const std::string name(4 * kMiB, 'm');
  return {
      {"members of every kind", Raw, {{EveryKindOfMember()}}},
      {"a name of 4 MiB", Raw, {{LineWith(Message::CreateNotification(name, {}))}}},
      // Each of these is a message without fault.
      {"calls", Raw, {{LineWith(Message::CreateNotification("poke", value)), 1000}}},
      {"one request", Raw, {{LineWith(Message::CreateRequest(id, "echo", value)), 1000}}},
      {"answers to nothing", Raw, {{LineWith(Message::CreateResponse(id, value)), 1000}}},
      {"errors for nothing", Raw, {{LineWith(Message::CreateError(id, 5, "no", value)), 1000}}},
      {"errors of nobody", Raw, {{LineWith(Message::CreateError(5, "no", value)), 1000}}},
      {"handshakes", Raw, {{LineWith(Message::CreateRequest(id, "flrpc.connected", {})), 1000}}},
  };
}

std::vector<Bomb> GetEarlyBombs() {
  const std::string maps = Call(Declare("0c", 20000) + Times(Hex("0d 01 00 00"), 20000));
  return {
      {"more calls than are held", Raw, {{LineWith(Message::CreateNotification("poke", 1)), 2000}}},
      {"early phantom texts", Raw, {{PhantomText(), 2}}, kWithPhantomText},
      {"early phantom elements", Ignored, {{Declare("0c", cw::kMostMissingElements)}}},
      {"small maps", Raw, {{maps, 8}}},  // Of few bytes, each of them a node.
  };
}

}  // namespace test
