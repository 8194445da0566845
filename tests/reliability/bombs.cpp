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
constexpr size_t kFlood = 2000;  // More than are held before the handshake.
// A frame may miss 64 MiB of text: then it takes these, and what else it takes to read it.
constexpr int kWithPhantomText = 80;

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

// The head of a text or a container of that many elements.
std::string Declare(const char* tag, uint64_t count) {
  std::string head = Hex(tag) + Hex("ff");
  for (int shift = 0; shift < 32; shift += 8) head += static_cast<char>(count >> shift);
  return head;
}

// A notification that the victim would answer, but for its parameters: the bytes given.
std::string CallWith(const std::string& params, const char* method = "poke") {
  const auto text = [](const std::string& word) {
    return Hex("07") + static_cast<char>(word.size()) + word;
  };
  return Hex("0d 03") + text("jsonrpc") + text("2.0") + text("method") + text(method) +
         text("params") + params;
}

std::string Call(const std::string& params) { return LineOf(CallWith(params)); }

// Nobody answers this one: an echo of what is not there would be the victim's own doing.
std::string Ignored(const std::string& params) { return LineOf(CallWith(params, "ignored")); }

// The line of a map with the "jsonrpc" member, whatever else it has.
std::string Envelope(EncodableMap members) {
  members.emplace("jsonrpc", "2.0");
  const auto bytes = EncodableValue(std::move(members)).Serialize();
  return LineOf({bytes.GetData(), bytes.GetData() + bytes.GetSize()});
}

// A value of every kind at one place of the envelope.
std::string EveryKindAs(const char* member, const EncodableMap& others) {
  std::string lines;
  for (const EncodableValue& kind :
       {EncodableValue(), EncodableValue(true), EncodableValue(-5),
        EncodableValue(int64_t{1} << 40), EncodableValue(0.5), EncodableValue(""),
        EncodableValue(std::string(300, 'x')), EncodableValue(std::vector<uint8_t>(3)),
        EncodableValue(std::vector<float>(3)), EncodableValue(cw::EncodableList{1, "a"}),
        EncodableValue(EncodableMap{{1, 2}})}) {
    EncodableMap members = others;
    members.insert_or_assign(member, kind);
    lines += Envelope(std::move(members));
  }
  return lines;
}

// Each beginning of a good line, as a line; each beginning of its value's bytes likewise.
std::string TruncatedEverything() {
  const std::string bytes = CallWith(Hex("0c 03 07 02 61 62 09 01 00 00 01 00 00 00 0b 01 00 06"));
  const std::string line = LineOf(bytes);
  std::string lines;
  for (size_t size = 0; size < line.size(); ++size) lines += line.substr(0, size) + '\n';
  for (size_t size = 0; size < bytes.size(); ++size) lines += LineOf(bytes.substr(0, size));
  return lines;
}

// As many values as 64 MiB have room for, and what the largest frame may take: 100 bytes a value.
constexpr uint64_t kManyValues = 524288;
constexpr int kWithAllValues = 400;

// A map of that many values, next to the envelope's own; no two keys are equal.
std::string LargeMap(uint64_t values) {
  const uint64_t entries = (values - 7) / 2;
  std::string map = Declare("0d", entries);
  for (uint64_t key = 0; key < entries; ++key) {
    map += Hex("03");
    for (int shift = 0; shift < 32; shift += 8) map += static_cast<char>(key >> shift);
    map += Hex("00");
  }
  return map;
}

std::string LongList(uint64_t values) {
  return Declare("0c", values - 7) + Times(Hex("00"), static_cast<size_t>(values - 7));
}

std::string EveryTag() {
  std::string lines;
  for (int tag = 0; tag < 256; ++tag) {
    lines += LineOf(std::string(1, static_cast<char>(tag)) + Hex("ff ff ff ff ff"));
    lines += Call(std::string(1, static_cast<char>(tag)));
  }
  return lines;
}

std::string WrongPadding() {
  std::string lines;
  for (const char* text :
       {"=", "A", "AA", "AAA", "A===", "AA=A", "=AAA", "DQQ\xC3\xA9", "DQ Q", "DQQ\\n"}) {
    lines += LineOfText(text);
  }
  return lines;
}

std::string JsonOfWrongTypes() {
  std::string lines = "null\ntrue\n5\n\"text\"\n[]\n[{\"data\":\"AA==\"}]\n{}\n{\"data\"}\n";
  for (const char* value : {"null", "true", "5", "1e999", "[]", "{}", "[\"AA==\"]", "\"\""}) {
    lines += "{\"data\":" + std::string(value) + "}\n";
  }
  return lines;
}

const Message::ID kId("id7_1");

std::string TextOf(Message message) { return LineOfText(message.ToBase64()); }

}  // namespace

std::string LineOfText(const std::string& base64) { return "{\"data\":\"" + base64 + "\"}\n"; }

std::string LineOf(const std::string& bytes) {
  return LineOfText(forge::Buffer(Bytes(bytes.begin(), bytes.end())).ToBase64());
}

const std::vector<Bomb>& GetBombs() {
  static const auto& bombs = *new std::vector<Bomb>{
      // The desk's lines.
      {"empty lines", [] { return std::string(20000, '\n'); }},
      {"64 MiB that are no line", [] { return std::string(64 * kMiB, 'x'); }, Bomb::kAnyTime, true},
      {"a line of 64 MiB", [] { return std::string(64 * kMiB, 'x') + '\n'; }, Bomb::kAnyTime, true},
      {"a frame of 64 MiB", [] { return LineOfText(std::string(64 * kMiB, 'A')); }, Bomb::kAnyTime,
       true},
      {"NUL bytes", [] { return std::string(8 * kMiB, '\0') + '\n'; }},
      {"blanks before a frame", [] { return std::string(8 * kMiB, ' ') + LineOf("\x01"); }},
      {"no UTF-8",
       [] { return Times("{\"data\":\"\xFF\xC0\x80\xED\xA0\x80\xF8\"}\n\xFE\xFF\n", 100); }},
      // JSON.
      {"JSON lists 100,000 deep",
       [] { return "{\"data\":" + Times("[", 100000) + Times("]", 100000) + "}\n"; }},
      {"JSON objects 100,000 deep",
       [] { return Times("{\"data\":", 100000) + "1" + Times("}", 100000) + '\n'; }},
      {"JSON 1,000 deep", [] { return Times("{\"data\":", 1000) + "1" + Times("}", 1000) + '\n'; }},
      {"millions of empty JSON lists",
       [] { return "{\"data\":[" + Times("[],", 8 * kMiB / 3) + "[]]}\n"; }},
      {"millions of JSON members",
       [] { return "{" + Times("\"\":{},", 8 * kMiB / 6) + "\"data\":\"\"}\n"; }},
      {"a million JSON numbers", [] { return "{\"data\":[" + Times("1,", 4 * kMiB) + "1]}\n"; }},
      {"keys that come again",
       [] { return Times("{\"data\":[\"" + std::string(1000, 'x') + "\"],\"data\":1}\n", 20000); }},
      {"blanks, and then no JSON",
       [] { return "{\"a\":[]," + std::string(8 * kMiB, '\t') + "x}\n"; }},
      {"a key of 4 MiB, with escapes",
       [] { return "{\"" + Times("\\u0001", 4 * kMiB / 6) + "\":[{}]}\n"; }},
      {"a JSON number of 1 MiB", [] { return "{\"data\":" + std::string(kMiB, '9') + "}\n"; }},
      {"a text that does not end", [] { return "{\"data\":\"" + Times("\\\"", kMiB) + '\n'; }},
      {"lone surrogates",
       [] { return Times("{\"data\":\"\\ud800\"}\n{\"\\udfff\":\"\\udfff\\ud800A\"}\n", 100); }},
      {"NUL inside the text",
       [] { return Times("{\"data\":\"AA\\u0000==\"}\n{\"data\":\"\\u0000\"}\n", 100); }},
      {"JSON of wrong types", JsonOfWrongTypes},
      // Base64.
      {"wrong padding", WrongPadding},
      {"padding alone", [] { return LineOfText(std::string(4 * kMiB, '=')); }},
      {"zeros", [] { return LineOfText(std::string(4 * kMiB, 'A')); }},
      // Values.
      {"lists 100,000 deep", [] { return Call(Times(Hex("0c 01"), 100000)); }},
      {"map keys 100,000 deep", [] { return Call(Times(Hex("0d 01"), 100000)); }},
      {"lists as deep as may be", [] { return Call(Times(Hex("0c 01"), 1022)); }},
      {"equal deep keys",
       [] { return Call(Hex("0d c8") + Times(Times(Hex("0c 01"), 1000) + Hex("00 00"), 200)); }},
      {"maps as keys of maps",
       [] { return Call(Times(Hex("0d 02"), 1000) + Times(Hex("00 00"), 1000)); }},
      {"a long list", [] { return Ignored(LongList(kManyValues)); }},
      {"a large map", [] { return Ignored(LargeMap(kManyValues)); }},
      {"a list as long as may be", [] { return Ignored(LongList(cw::kMostValues)); },
       Bomb::kAnyTime, false, kWithAllValues},
      {"a map as large as may be", [] { return Ignored(LargeMap(cw::kMostValues)); },
       Bomb::kAnyTime, false, kWithAllValues},
      {"millions of nulls",
       [] { return Call(Declare("0c", 4 * kMiB) + Times(Hex("00"), 4 * kMiB)); }},
      {"2^26 - 1 elements", [] { return Call(Declare("0c", (1u << 26) - 1)); }},
      {"2^26 elements", [] { return Call(Declare("0c", 1u << 26)); }},
      {"2^32 - 1 of everything",
       [] {
         std::string lines;
         for (const char* tag : {"05", "07", "08", "09", "0a", "0b", "0c", "0d", "0e"}) {
           lines += Call(Declare(tag, 0xFFFFFFFF));
         }
         return lines;
       }},
      // One frame: each element that is missing is a line of the log.
      {"phantom elements", [] { return Ignored(Declare("0c", cw::kMostMissingElements)); }},
      {"phantom texts in step",  // A failed read does not advance: each reads the next ones.
       [] {
         const std::string text = Declare("07", cw::kMostMissingBytes / 64);
         return Times(Ignored(Declare("0c", 64) + Times(text, 64)), 2);
       },
       Bomb::kAnyTime, false, kWithPhantomText},
      {"phantom texts", [] { return Times(Ignored(Declare("07", cw::kMostMissingBytes)), 2); },
       Bomb::kAnyTime, false, kWithPhantomText},
      {"truncated everything", TruncatedEverything},
      {"every tag", EveryTag},
      // Envelopes.
      {"methods of every kind",
       [] {
         return EveryKindAs("method", {{"id", "a"}});
       }},
      {"ids of every kind",
       [] {
         return EveryKindAs("id", {{"method", "echo"}}) + EveryKindAs("id", {{"result", 1}});
       }},
      {"errors of every kind",
       [] {
         return EveryKindAs("error", {}) + EveryKindAs("error", {{"id", "a"}}) +
                EveryKindAs("jsonrpc", {{"method", "poke"}});
       }},
      {"a method name of 4 MiB",
       [] { return TextOf(Message::CreateNotification(std::string(4 * kMiB, 'm'), {})); }},
      // The order of things.
      {"answers to nothing",
       [] {
         return Times(TextOf(Message::CreateResponse(kId, 1)), 1000) +
                Times(TextOf(Message::CreateError(kId, 5, "no", {})), 1000);
       }},
      {"handshakes without end",
       [] { return Times(TextOf(Message::CreateRequest(kId, "flrpc.connected", {})), 1000); }},
      {"a flood before the handshake",
       [] { return Times(TextOf(Message::CreateNotification("poke", "early")), kFlood); },
       Bomb::kEarly},
      {"a flood of phantom texts before the handshake",
       [] { return Times(Ignored(Declare("07", cw::kMostMissingBytes)), 2); }, Bomb::kEarly, false,
       kWithPhantomText},
      {"a flood of phantom elements before the handshake",
       [] { return Times(Ignored(Declare("0c", cw::kMostMissingElements)), 1); }, Bomb::kEarly},
      {"a flood of small maps before the handshake",  // Of few bytes, each of them a node.
       [] { return Times(Call(Declare("0c", 20000) + Times(Hex("0d 01 00 00"), 20000)), 8); },
       Bomb::kEarly},
  };
  return bombs;
}

}  // namespace test
