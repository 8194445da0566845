#include "tests/support/fake_embedder.h"

namespace test {
namespace {

using App = _FlutterOstrelApplication*;
using Engine = _FlutterOstrelEngine*;
using View = _FlutterOstrelView*;

FakeEmbedder* current = nullptr;  // The one that lives, for the tables' functions.

}  // namespace

FakeEmbedder::FakeEmbedder() {
  current = this;
#define BEGIN(name)     \
  {                     \
    auto& table = name; \
    table.size = sizeof table;
#define FIELD(index, field, type) table.field = reinterpret_cast<type>(uintptr_t{index});
#define ENTRY(index, field, result, ...)                              \
  table.field = [](auto... arguments) {                               \
    return static_cast<result>(current->Enter(#field, arguments...)); \
  };
#define END(count) }
#include "platform/flutter_ostrel/embedder_entries.inc"
}

}  // namespace test
