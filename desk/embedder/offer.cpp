#include "desk/embedder/offer.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <vector>

#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace desk {
namespace {

struct Entry {
  const char* name;
  size_t end;
};

struct Structure {
  const char* name;
  std::vector<Entry> entries;
};

template <typename Table, typename Field>
constexpr size_t SizeOf(Field Table::*) {
  return sizeof(Field);  // NOLINT(bugprone-sizeof-expression): the size of a pointer is meant.
}

const std::vector<Structure>& GetStructures() {
  // clang-format off
  static const std::vector<Structure> structures = {
#define BEGIN(name) {#name, {
#define FIELD(index, field, type) {#field, offsetof(TABLE, field) + SizeOf(&TABLE::field)},
#define ENTRY(index, field, ...) FIELD(index, field, )
#define END(count) }},
#include "platform/flutter_ostrel/embedder_entries.inc"
  };
  // clang-format on
  return structures;
}

Json DescribeStructure(const Structure& structure, uint32_t declared) {
  Json described{{"size", declared}};
  for (const Entry& entry : structure.entries) {
    described[declared >= entry.end ? "entries" : "withheld"][entry.name] = entry.end;
  }
  return described;
}

}  // namespace

Json DescribeOffer(const Description& description) {
  DeclaredSizes sizes = description.declared_sizes;
  Json offer = Json::object();
  for (const Structure& structure : GetStructures()) {
    const uint32_t whole = GetWholeSize(structure.name);
    offer[structure.name] =
        DescribeStructure(structure, FindDeclaredSize(sizes, structure.name)->value_or(whole));
  }
  return offer;
}

}  // namespace desk
