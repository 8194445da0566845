// An embedder played by the test: every entry of its tables writes down its name and arguments,
// keeps what it is given, fills what it is asked for, and answers what the test has set. A table,
// a structure that is filled or the context can be declared at any size.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "forge/forge_capi.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"
#include "tests/support/log_capture.h"

namespace test {

class FakeEmbedder {
 public:
  FakeEmbedder();
  ~FakeEmbedder();  // Releases the last slot.
  FakeEmbedder(const FakeEmbedder&) = delete;
  FakeEmbedder& operator=(const FakeEmbedder&) = delete;

  // Of the one that lives; for the tables' functions.
  static FakeEmbedder& Get();

  // The context, in memory of no more than its declared size.
  FlutterOstrelPluginContext* GetContext(size_t declared = sizeof(FlutterOstrelPluginContext));

  // Their size fields say what the loaders declare; entries are null only where the test says so.
  FlutterOstrelPluginContext context{};
  FlutterOstrelApplicationProcTable application{};
  FlutterOstrelViewProcTable view{};
  FlutterOstrelMessengerProcTable messenger{};
  FlutterOstrelTextureProcTable texture{};

  std::map<std::string, double> answers;                // By entry; 1 where nothing is set.
  std::map<std::string, std::function<void()>> within;  // Runs within the entry.

  // What is filled in for the caller.
  FlutterOstrelOSVersion os_version{sizeof os_version, {1, 2, 3, 4}};
  FlutterOstrelEmbedderVersion embedder_version{sizeof embedder_version, {1, 2, 3}};
  FlutterOstrelTheme theme{sizeof theme, 0, {1, 2, 3, 4}, {"a", "b", "c", "d"}};
  std::vector<uint8_t> payload;  // Of GetWindowPayload.
  std::string text = "text";     // Of the text queries.
  std::vector<const char*> dart_arguments{"one", "two"};

  // The entries called since the last time: their names, or a text with all arguments, such as
  // "LockResources(view) UnlockResources(view, 7)".
  std::vector<std::string> TakeCalls();
  std::string TakeTrace();

  // What the entries were given last.
  std::vector<uint8_t> data;
  FlutterOstrelMessageCallback message_callback = nullptr;
  FlutterOstrelReplyCallback reply_callback = nullptr;
  void (*unregistered_callback)(void* user_data) = nullptr;
  void* user_data = nullptr;  // Of the last of the three.
  void (*engine_destroyed)(_FlutterOstrelEngine* engine) = nullptr;
  FlutterOstrelTextureDescriptor descriptor{};

  // The last slot that was taken.
  void Call() { slot_.callback(slot_.user_data); }
  void Call(bool value) { bool_slot_.callback(bool_slot_.user_data, value); }
  void Call(const std::vector<uint8_t>& result, const char* result_text);
  bool HasSlot() const { return release_ != nullptr; }
  void ReleaseSlot();

 private:
  class Arguments;

  template <typename... Parameters>
  double Enter(const char* entry, Parameters... parameters);
  template <typename Slot>
  void Keep(const Slot* slot, Slot* kept);

  std::vector<std::pair<std::string, std::string>> calls_;  // Entries and arguments.
  FlutterOstrelSlot slot_{};
  FlutterOstrelBoolSlot bool_slot_{};
  FlutterOstrelResultSlot result_slot_{};
  void (*release_)(void* user_data) = nullptr;
  void* released_data_ = nullptr;
  std::unique_ptr<void, void (*)(void*)> context_memory_{nullptr, std::free};
};

}  // namespace test
