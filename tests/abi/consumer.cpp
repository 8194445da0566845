// A program that knows the shared library alone, as a plug-in does: it derives from exported
// classes, catches what the library throws, and uses header templates. Ends with 0 when all works.
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "forge/buffer.h"
#include "forge/dispatcher.h"
#include "forge/object.h"
#include "forge/resources_cache.h"
#include "forge/signals.h"
#include "src/tavo_capi.h"

namespace {

int failures = 0;

void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "consumer: failed: %s\n", what);
  ++failures;
}

class RunAtOnce final : public forge::IDispatcher {
 public:
  void Invoke(const std::function<void()>& task, uint32_t) override { task(); }
};

struct ThingRef;
class Thing final : public forge::Object<Thing, ThingRef*> {
  struct PrivateTag {};

 public:
  explicit Thing(PrivateTag) : Object(std::make_shared<RunAtOnce>()) {}
  static std::shared_ptr<Thing> Create() { return Object::Create(PrivateTag{}); }
};

class CountingListener final : public forge::IListener<int> {
 public:
  explicit CountingListener(int* sum) : sum_(sum) {}
  void Invoke(int value) const override { *sum_ += value; }
  void InvokeOnce(int value) override { *sum_ += value; }

 private:
  int* const sum_;
};

void DerivesFromExportedClasses() {
  const auto thing = Thing::Create();
  bool ran = false;
  thing->Invoke([&ran] { ran = true; }, 0);
  Check(ran, "a plug-in's dispatcher runs tasks");
  Check(Thing::FromRef(thing->GetRef()) == thing, "a plug-in's object resolves");
}

void CatchesLibraryExceptions() {
  TAVOProcTable top{};
  TAVORpcClientProcTable table{};
  TAVOProcTableLoad(&top, sizeof top);
  top.RpcClientProcTableLoad(&table, sizeof table);
  try {
    table.StartTask(nullptr, nullptr, nullptr, nullptr);
    Check(false, "a null text throws");
  } catch (const std::logic_error&) {
  }
  try {
    forge::ResourcesCache cache;
    cache.AppendStr(cache.CreateChunk(), std::string_view(nullptr, 1));
    Check(false, "a null text with a length throws");
  } catch (const std::logic_error&) {
  }
}

void UsesHeaderTemplates() {
  int sum = 0;
  forge::OwnedRunOnceSignal<int> signal;
  const auto listener = std::make_shared<CountingListener>(&sum);
  signal.Attach(listener);
  signal.Subscribe([&sum](int value) { sum += value; });
  signal.Emit(2);
  auto slot = forge::CreateSlot<TAVOOpenUriSlot, bool>([&sum](bool success) { sum += success; });
  slot.callback(slot.user_data, true);
  slot.release(slot.user_data);
  Check(sum == 5, "signals and slots");
  Check(forge::Buffer::FromBase64("Zm9v").GetSize() == 3, "buffers");
}

}  // namespace

int main() {
  DerivesFromExportedClasses();
  CatchesLibraryExceptions();
  UsesHeaderTemplates();
  return failures != 0;
}
