// An embedder played by the test: every entry of its tables records its name and answers what the
// test has set. A table or the context can be declared at any size.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/flutter_ostrel/flutter_ostrel.h"
#include "tests/support/log_capture.h"

namespace test {

class FakeEmbedder {
 public:
  FakeEmbedder();
  ~FakeEmbedder();  // Releases the last slot.
  FakeEmbedder(const FakeEmbedder&) = delete;
  FakeEmbedder& operator=(const FakeEmbedder&) = delete;

  // The context, in memory of no more than its declared size.
  FlutterOstrelPluginContext* GetContext(size_t declared = sizeof(FlutterOstrelPluginContext));

  // Their size fields say what the loaders declare; entries are null only where the test says so.
  FlutterOstrelPluginContext context{};
  FlutterOstrelApplicationProcTable application{};
  FlutterOstrelViewProcTable view{};
  FlutterOstrelMessengerProcTable messenger{};
  FlutterOstrelTextureProcTable texture{};

  std::map<std::string, double> answers;  // By entry or loader; 1 where nothing is set.
  std::string text = "text";              // Of the text queries.
  std::vector<const char*> dart_arguments{"one", "two"};
  FlutterOstrelTheme theme{};
  std::vector<uint8_t> payload;  // Of GetWindowPayload.
  std::vector<uint8_t> data;     // What the last entry with bytes was given.

  // The entries called since the last time: their names, and the last one's handle and arguments,
  // such as "view, 7".
  std::vector<std::string> TakeCalls() { return std::exchange(calls_, {}); }
  const std::string& GetLastArguments() const { return last_arguments_; }

  // The last slot that was taken.
  void Call() { void_slot_.callback(void_slot_.user_data); }
  void Call(bool value) { bool_slot_.callback(bool_slot_.user_data, value); }
  void Call(const std::vector<uint8_t>& result, const char* result_text);
  bool HasSlot() const { return release_ != nullptr; }
  void ReleaseSlot();

  // The messenger's and the textures' other side.
  FlutterOstrelMessageCallback message_callback = nullptr;
  FlutterOstrelReplyCallback reply_callback = nullptr;
  void (*unregistered_callback)(void* user_data) = nullptr;
  void* user_data = nullptr;  // Of the last of the three.
  std::function<void()> within_send;
  FlutterOstrelTextureDescriptor descriptor{};
  void (*engine_destroyed)(_FlutterOstrelEngine* engine) = nullptr;
  std::function<void()> within_subscribe;

  // Of the one that lives; for the tables' functions.
  static FakeEmbedder& Get();
  template <typename... Arguments>
  double Record(const std::string& entry, const Arguments&... arguments) {
    std::ostringstream described;
    [[maybe_unused]] const char* separator = "";
    ((described << std::exchange(separator, ", ") << Describe(arguments)), ...);
    last_arguments_ = described.str();
    calls_.push_back(entry);
    const auto found = answers.find(entry);
    return found == answers.end() ? 1 : found->second;
  }
  template <typename Slot>
  void Take(const Slot* slot, Slot* taken) {
    ReleaseSlot();
    if (!slot) return;
    EXPECT_EQ(sizeof(Slot), slot->size);
    *taken = *slot;
    release_ = slot->release;
    released_data_ = slot->user_data;
  }
  FlutterOstrelSlot void_slot_{};
  FlutterOstrelBoolSlot bool_slot_{};
  FlutterOstrelResultSlot result_slot_{};

 private:
  // Whose handle it is, or "?"; anything else as it is.
  static const char* Describe(_FlutterOstrelApplication* handle);
  static const char* Describe(_FlutterOstrelEngine* handle);
  static const char* Describe(_FlutterOstrelView* handle);
  template <typename T>
  static const T& Describe(const T& argument) {
    return argument;
  }

  std::vector<std::string> calls_;
  std::string last_arguments_;
  void (*release_)(void* user_data) = nullptr;
  void* released_data_ = nullptr;
  std::unique_ptr<void, void (*)(void*)> context_memory_{nullptr, std::free};
};

// One operation over one entry of a table.
template <typename Wrapper>
struct Operation {
  std::string entry;
  std::string arguments;                      // What the entry must be given.
  size_t end;                                 // Of the entry in its table.
  bool must_be_covered;                       // Otherwise it need only be set.
  std::string line;                           // The log line when it is missing; empty: none.
  std::function<std::string(Wrapper&)> call;  // Returns the result as text.
  std::string result;
  std::string neutral;  // The result when the entry is missing.
};

// Declares every size of a table, once with all entries set whatever the size, and once with only
// the covered ones. `table` is the fake's, `create` makes the wrapper.
template <typename Wrapper, typename Table>
void CheckDeclaredSizes(FakeEmbedder* embedder, Table* table, LogCapture* log,
                        const std::function<std::unique_ptr<Wrapper>()>& create,
                        const std::vector<Operation<Wrapper>>& operations) {
  const Table full = *table;
  for (uint32_t size = 0; size <= sizeof(Table) + 8; ++size) {
    for (const bool sets_all : {true, false}) {
      SCOPED_TRACE(std::to_string(size) + (sets_all ? ", all set" : ""));
      *table = full;
      const size_t kept = std::max<size_t>(size / sizeof(void*), 1) * sizeof(void*);
      if (!sets_all && kept < sizeof(Table)) {
        std::memset(reinterpret_cast<char*>(table) + kept, 0, sizeof(Table) - kept);
      }
      table->size = size;
      const auto wrapper = create();
      ASSERT_TRUE(wrapper);
      embedder->TakeCalls();
      for (const auto& operation : operations) {
        SCOPED_TRACE(operation.entry);
        const bool works = size >= operation.end || (sets_all && !operation.must_be_covered);
        EXPECT_EQ(works ? operation.result : operation.neutral, operation.call(*wrapper));
        const auto calls = embedder->TakeCalls();
        EXPECT_EQ(works, !calls.empty() && calls.back() == operation.entry);
        if (works) {
          EXPECT_EQ(operation.arguments, embedder->GetLastArguments());
        }
        const bool logs = !works && !operation.line.empty();
        EXPECT_EQ(logs ? std::vector<std::string>{"[error] " + operation.line}
                       : std::vector<std::string>{},
                  log->TakeLines());
      }
    }
  }
  *table = full;
}

#define TEST_ENTRY_END(Table, entry) (offsetof(Table, entry) + sizeof(void*))

}  // namespace test
