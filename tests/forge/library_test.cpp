#include "forge/library.h"

#include <dlfcn.h>

#include "forge/library_api.h"
#include "tests/forge/libraries/tables.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace forge {

class LibraryTestPeer {
 public:
  static Library Unloaded() { return Library("/nowhere", Library::PrivateTag()); }
};

}  // namespace forge

namespace {

using forge::Library;
using Api = forge::LibraryApi<TestTable>;

class LibraryTest : public test::TestBase {
 protected:
  std::unique_ptr<Api> Bind(const char* loader) {
    const auto library = Library::Create(TAVO_TEST_TABLES);
    return Api::Create(library, library->Resolve<Api::Loader>(loader));
  }

  static bool IsLoaded() {
    void* const handle = dlopen(TAVO_TEST_TABLES, RTLD_NOW | RTLD_NOLOAD);
    if (handle) dlclose(handle);
    return handle != nullptr;
  }

  test::LogCapture log_;
};

TEST_F(LibraryTest, MissingLibraryIsToldWithItsPathTwiceQuoted) {
  const struct {
    const char* path;
    const char* shown;
  } rows[] = {
      {"/no/such/lib.so", R"(""/no/such/lib.so"": )"},
      {R"(/a "b" \c)", R"(""/a \"b\" \\c"": )"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(nullptr, Library::Create(row.path));
    const std::string line = log_.TakeLine();
    const std::string begin = std::string("[error] Couldn't load library ") + row.shown;
    EXPECT_EQ(begin, line.substr(0, begin.size()));
    EXPECT_NE(std::string::npos, line.find("cannot open shared object file"));
  }
}

TEST_F(LibraryTest, SymbolsAreResolvedByName) {
  const auto library = Library::Create(TAVO_TEST_TABLES);
  ASSERT_TRUE(library);
  EXPECT_EQ(TAVO_TEST_TABLES, library->GetPath());
  EXPECT_TRUE(library->ResolveImpl(std::string_view("LoadOlder and more").substr(0, 9)));
  EXPECT_EQ(nullptr, library->ResolveImpl("LoadNone"));
  const std::string line = log_.TakeLine();
  EXPECT_EQ(0u, line.find("[error] Could not load LoadNone symbol: ")) << line;
  EXPECT_NE(std::string::npos, line.find("undefined symbol")) << line;

  EXPECT_EQ(nullptr, forge::LibraryTestPeer::Unloaded().ResolveImpl("Any"));
  EXPECT_EQ("[error] Could not load Any symbol: Library handle is null", log_.TakeLine());

  const auto without = Library::Create(TAVO_TEST_NO_TABLES);
  ASSERT_TRUE(without);
  EXPECT_EQ(nullptr, Api::Create(without, without->Resolve<Api::Loader>("LoadCurrent")));
  EXPECT_EQ(2u, log_.TakeLines().size());
}

TEST_F(LibraryTest, EntriesCountAsFarAsTheTableDeclares) {
  const struct {
    const char* loader;
    bool has_three;
    bool is_three_set;
  } rows[] = {
      {"LoadCurrent", true, true}, {"LoadOlder", false, false}, {"LoadLowered", false, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.loader);
    const auto api = Bind(row.loader);
    ASSERT_TRUE(api);
    ASSERT_TRUE(forge::Covered(api->Get(), &TestTable::Two));
    EXPECT_EQ(2, api->Get().Two());
    EXPECT_EQ(row.has_three, forge::Covered(api->Get(), &TestTable::Three));
    EXPECT_EQ(row.is_three_set, forge::Set(api->Get(), &TestTable::Three));
  }
}

// One line each, and no reference to the library is kept.
TEST_F(LibraryTest, FailedBindingReleasesTheLibrary) {
  EXPECT_EQ(nullptr, Api::Create(nullptr, nullptr));
  EXPECT_EQ("[error] No library provided.", log_.TakeLine());
  const auto library = Library::Create(TAVO_TEST_TABLES);
  EXPECT_EQ(nullptr, Api::Create(library, nullptr));
  EXPECT_EQ("[error] No proc table loader function provided.", log_.TakeLine());
  EXPECT_EQ(nullptr, Api::Create(library, library->Resolve<Api::Loader>("LoadFailing")));
  EXPECT_EQ("[error] Failed to load proc table.", log_.TakeLine());
  EXPECT_EQ(1, library.use_count());
}

TEST_F(LibraryTest, LibraryStaysLoadedUntilItsLastTableIsGone) {
  EXPECT_FALSE(IsLoaded());
  auto first = Bind("LoadCurrent");
  auto second =
      Api::Create(first->GetLibrary(), first->GetLibrary()->Resolve<Api::Loader>("LoadOlder"));
  first.reset();
  EXPECT_TRUE(IsLoaded());
  EXPECT_EQ(2, second->Get().Two());
  second.reset();
  EXPECT_FALSE(IsLoaded());
}

}  // namespace
