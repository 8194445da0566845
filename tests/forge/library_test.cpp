#include "forge/library.h"

#include <dlfcn.h>

#include "forge/library_api.h"
#include "tests/support/log_capture.h"

using forge::Library;

class LibraryTest : public test::LogTest {
 protected:
  struct Table {
    uint32_t size;
  };
  using Api = forge::LibraryApi<Table>;

  const std::string path_ = TAVO_TEST_EMPTY_LIBRARY;
  std::shared_ptr<Library> library_ = Library::Create(path_);
};

TEST_F(LibraryTest, SymbolsAreResolvedByName) {
  EXPECT_EQ(2, library_->Resolve<int (*)()>({"Two and more", 3})());
  EXPECT_EQ(nullptr, library_->ResolveImpl("Three"));
  EXPECT_NE("", log_.TakeLine());
  EXPECT_EQ(nullptr, Library::Create("/no"));
  EXPECT_NE("", log_.TakeLine());
}

// What fails is one line each, and keeps no reference. What a table offers at each declared size is
// tried in tests/wrapper/declared_sizes_test.cpp.
TEST_F(LibraryTest, StaysLoadedUntilItsLastTableIsGone) {
  EXPECT_FALSE(Api::Create(nullptr, nullptr));
  ExpectError("No library provided.");
  EXPECT_FALSE(Api::Create(library_, nullptr));
  ExpectError("No proc table loader function provided.");
  EXPECT_FALSE(Api::Create(library_, [](auto*, auto) { return 1u; }));
  ExpectError("Failed to load proc table.");
  EXPECT_EQ(1, library_.use_count());
  auto api = Api::Create(library_, [](auto*, auto) { return 0u; });
  EXPECT_EQ(library_, api->GetLibrary());
  library_.reset();
  void* const loaded = dlopen(path_.c_str(), RTLD_NOW | RTLD_NOLOAD);
  EXPECT_EQ(0, dlclose(loaded));
  api.reset();
  EXPECT_FALSE(dlopen(path_.c_str(), RTLD_NOW | RTLD_NOLOAD));
}
