// Structures as anybody may declare them: at any size, with any field null, in memory of exactly
// the declared size or in more. Each of their fields takes the room of a pointer; the first holds
// the declared size. A field that the size does not reach does not count, whatever it holds.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace test {

constexpr size_t kField = sizeof(void*);

template <typename Structure>
constexpr size_t kFields = sizeof(Structure) / kField;

inline bool Covers(uint32_t size, size_t field) { return size >= (field + 1) * kField; }

template <typename Structure>
void* FieldOf(const Structure& structure, size_t field) {
  void* value = nullptr;
  std::memcpy(&value, reinterpret_cast<const char*>(&structure) + field * kField, kField);
  return value;
}

// Every size up to beyond the whole, and the whole with each field null; `null` is 0 where none is.
template <typename Structure, typename Check>
void ForEachDeclaration(const Structure& full, const Check& check) {
  for (uint32_t step = 0; step < sizeof full + kFields<Structure>; ++step) {
    if (testing::Test::HasFailure()) return;
    const size_t null = step > sizeof full ? step - sizeof full : 0;
    const uint32_t size = null > 0 ? sizeof full : step + 1;
    SCOPED_TRACE(testing::Message() << size << ", null " << null);
    Structure declared = full;
    std::memset(reinterpret_cast<char*>(&declared) + null * kField, 0, kField);
    std::memcpy(static_cast<void*>(&declared), &size, sizeof size);
    check(declared, null);
  }
}

// What an operation looks at: an entry that must be covered, or need only be set.
struct Need {
  size_t field;
  const char* name;
  bool must_be_covered;
};
#define TEST_SET(entry) (test::Need{offsetof(Table, entry) / test::kField, #entry, false})
#define TEST_COVERED(entry) (test::Need{offsetof(Table, entry) / test::kField, #entry, true})

// The line about the first that is missing; empty: none is.
template <typename Table>
std::string FindLack(const Table& declared, const std::vector<Need>& needs) {
  for (const Need& need : needs) {
    const bool is_offered = !need.must_be_covered || Covers(declared.size, need.field);
    if (is_offered && FieldOf(declared, need.field)) continue;
    return "[error] Method '" + std::string(need.name) + "' is not provided by the loaded API.";
  }
  return "";
}

// Memory behind which there is none: a step beyond its end ends the process.
class PageEnd {
 public:
  PageEnd() { mprotect(end_, kPage, PROT_NONE); }
  ~PageEnd() { munmap(end_ - kPage, 2 * kPage); }
  PageEnd(const PageEnd&) = delete;

  // The declared bytes of the structure, in whole fields.
  template <typename Structure>
  Structure* Place(const Structure& structure) {
    uint32_t size = 0;
    std::memcpy(&size, &structure, sizeof size);
    const size_t fields = std::clamp<size_t>((size + kField - 1) / kField, 1, kFields<Structure>);
    void* const place = end_ - fields * kField;
    return static_cast<Structure*>(std::memcpy(place, &structure, fields * kField));
  }

 private:
  static constexpr size_t kPage = 65536;  // A multiple of the page size of every machine.

  char* const end_ = kPage + static_cast<char*>(mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE,
                                                     MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
};

}  // namespace test
