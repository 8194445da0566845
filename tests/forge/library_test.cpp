#include "forge/library.h"

#include <dlfcn.h>

#include "forge/library_api.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace {

using forge::Library;

struct Table {
  uint32_t size;
  int (*Two)();
  int (*Three)();
};
using Api = forge::LibraryApi<Table>;

struct AnyTag {  // Stands for a private tag.
  template <typename Tag>
  operator Tag() const {
    return Tag();
  }
};

class LibraryTest : public test::TestBase {
 protected:
  void ExpectLine(const std::string& begin, const std::string& cause) {
    const std::string line = log_.TakeLine();
    EXPECT_EQ(begin, line.substr(0, begin.size()));
    EXPECT_NE(std::string::npos, line.find(cause, begin.size())) << line;
  }

  test::LogCapture log_;
};

TEST_F(LibraryTest, SymbolsAreResolvedByName) {
  const auto library = Library::Create(TAVO_TEST_EMPTY_LIBRARY);
  EXPECT_EQ(TAVO_TEST_EMPTY_LIBRARY, library->GetPath());
  EXPECT_EQ(2, library->Resolve<int (*)()>(std::string_view("Two and more").substr(0, 3))());
  EXPECT_EQ(nullptr, library->ResolveImpl("Three"));
  ExpectLine("[error] Could not load Three symbol: ", "undefined symbol");
  EXPECT_EQ(nullptr, Library("/never/loaded", AnyTag()).ResolveImpl("Two"));
  ExpectLine("[error] Could not load Two symbol: ", "Library handle is null");
  // The path stands between two pairs of quotes.
  EXPECT_EQ(nullptr, Library::Create(R"(/a "b" \c)"));
  ExpectLine(R"([error] Couldn't load library ""/a \"b\" \\c"": )", "cannot open shared object");
}

// The loaders of a current library, of an older one, and of one that takes an entry back.
TEST_F(LibraryTest, EntriesCountAsFarAsTheTableDeclares) {
  const Api::Loader current = [](Table* table, unsigned int size) {
    const bool is_cleared = table->size == size && !table->Two && !table->Three;
    table->Two = table->Three = [] { return 2; };
    return is_cleared ? FORGE_RESULT_OK : FORGE_RESULT_INVALID_ARGUMENT;
  };
  const Api::Loader older = [](Table* table, unsigned int) {
    table->Two = [] { return 2; };
    table->size = offsetof(Table, Three);
    return FORGE_RESULT_OK;
  };
  const Api::Loader lowered = [](Table* table, unsigned int) {
    table->Two = table->Three = [] { return 2; };
    table->size = sizeof(Table) - 1;
    return FORGE_RESULT_OK;
  };
  const std::tuple<Api::Loader, bool, bool> rows[] = {
      {current, true, true}, {older, false, false}, {lowered, false, true}};
  for (const auto& [loader, has_three, is_three_set] : rows) {
    const auto api = Api::Create(Library::Create(TAVO_TEST_EMPTY_LIBRARY), loader);
    ASSERT_TRUE(api);
    EXPECT_TRUE(forge::Covered(api->Get(), &Table::Two));
    EXPECT_EQ(has_three, forge::Covered(api->Get(), &Table::Three));
    EXPECT_EQ(is_three_set, forge::Set(api->Get(), &Table::Three));
  }
}

// What fails is one line each, and keeps no reference.
TEST_F(LibraryTest, LibraryStaysLoadedUntilItsLastTableIsGone) {
  const auto is_loaded = [] {
    void* const handle = dlopen(TAVO_TEST_EMPTY_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    return handle && dlclose(handle) == 0;
  };
  EXPECT_FALSE(is_loaded());
  auto library = Library::Create(TAVO_TEST_EMPTY_LIBRARY);
  EXPECT_EQ(nullptr, Api::Create(nullptr, nullptr));
  EXPECT_EQ("[error] No library provided.", log_.TakeLine());
  EXPECT_EQ(nullptr, Api::Create(library, nullptr));
  EXPECT_EQ("[error] No proc table loader function provided.", log_.TakeLine());
  EXPECT_EQ(nullptr, Api::Create(library, [](Table*, unsigned int size) { return size; }));
  EXPECT_EQ("[error] Failed to load proc table.", log_.TakeLine());
  EXPECT_EQ(1, library.use_count());
  auto api = Api::Create(library, [](Table*, unsigned int) { return FORGE_RESULT_OK; });
  EXPECT_EQ(library, api->GetLibrary());
  library.reset();
  EXPECT_TRUE(is_loaded());
  api.reset();
  EXPECT_FALSE(is_loaded());
}

}  // namespace
