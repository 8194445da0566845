// A program that knows the shared library alone, as a plug-in does: it derives from exported
// classes and uses header templates. It asserts what must hold.
#include <cassert>
#include <memory>

#include "cw/standard_codec_serializer.h"
#include "cw/standard_message_codec.h"
#include "forge/object.h"

namespace {

class RunAtOnce final : public forge::IDispatcher {
 public:
  void Invoke(const std::function<void()>& task, uint32_t) override { task(); }
};

struct ThingRef;
struct Thing final : forge::Object<Thing, ThingRef*> {
  Thing() : Object(std::make_shared<RunAtOnce>()) {}
  static std::shared_ptr<Thing> Create() { return Object::Create(); }
};

void DerivesFromExportedClasses() {
  const auto thing = Thing::Create();
  bool ran = false;
  thing->Invoke([&ran] { ran = true; }, 0);
  assert(ran);
  assert(Thing::FromRef(thing->GetRef()) == thing);
}

// A codec extension for one type of its own.
class CharSerializer final : public cw::StandardCodecSerializer {
 public:
  void WriteValue(const cw::EncodableValue& value, cw::ByteStreamWriter* stream) const override {
    const auto* custom = value.GetIf<cw::CustomEncodableValue>();
    if (!custom) return StandardCodecSerializer::WriteValue(value, stream);
    stream->WriteByte(200);
    stream->WriteByte(static_cast<uint8_t>(*custom->GetIf<char>()));
  }

 protected:
  cw::EncodableValue ReadValueOfType(uint8_t type, cw::ByteStreamReader* stream) const override {
    if (type != 200) return StandardCodecSerializer::ReadValueOfType(type, stream);
    return cw::CustomEncodableValue(static_cast<char>(stream->ReadByte()));
  }
};

void ExtendsTheCodec() {
  static const CharSerializer serializer;
  const auto& codec = cw::StandardMessageCodec::GetInstance(&serializer);
  const auto bytes = codec.EncodeMessage(cw::EncodableList{"x", cw::CustomEncodableValue('y')});
  const auto back = codec.DecodeMessage(bytes.GetData(), bytes.GetSize());
  const auto& custom = back->Get<cw::EncodableList>()[1].Get<cw::CustomEncodableValue>();
  assert(*custom.GetIf<char>() == 'y');
}

}  // namespace

int main() {
  DerivesFromExportedClasses();
  ExtendsTheCodec();
}
