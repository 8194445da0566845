#include "desk/embedder/description.h"

#include "cw/standard_method_codec.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {
namespace {

struct Structure {
  const char* name;
  uint32_t size;
  std::optional<uint32_t> DeclaredSizes::*declared;
};

constexpr Structure kStructures[] = {
    {"context", sizeof(FlutterOstrelPluginContext), &DeclaredSizes::context},
    {"application", sizeof(FlutterOstrelApplicationProcTable), &DeclaredSizes::application},
    {"view", sizeof(FlutterOstrelViewProcTable), &DeclaredSizes::view},
    {"texture", sizeof(FlutterOstrelTextureProcTable), &DeclaredSizes::texture},
    {"messenger", sizeof(FlutterOstrelMessengerProcTable), &DeclaredSizes::messenger},
};

const Structure* FindStructure(const std::string& name) {
  for (const Structure& structure : kStructures) {
    if (name == structure.name) return &structure;
  }
  return nullptr;
}

template <typename Bytes>
std::vector<uint8_t> ToVector(const Bytes& bytes) {
  return std::vector<uint8_t>(bytes.GetData(), bytes.GetData() + bytes.GetSize());
}

}  // namespace

std::optional<uint32_t>* FindDeclaredSize(DeclaredSizes& sizes, const std::string& structure) {
  const Structure* found = FindStructure(structure);
  return found ? &(sizes.*found->declared) : nullptr;
}

uint32_t GetWholeSize(const std::string& structure) {
  const Structure* found = FindStructure(structure);
  return found ? found->size : 0;
}

std::vector<uint8_t> Encode(const Answer& answer) {
  const auto& codec = cw::StandardMethodCodec::GetInstance();
  switch (answer.kind) {
    case Answer::kValue:
      return ToVector(answer.value.Serialize());
    case Answer::kSuccess:
      return ToVector(codec.EncodeSuccessEnvelope(&answer.value));
    case Answer::kError:
      return ToVector(codec.EncodeErrorEnvelope(answer.code, answer.message, &answer.value));
    case Answer::kBytes:
      return answer.bytes;
    case Answer::kNotImplemented:
      break;
  }
  return {};
}

}  // namespace desk
