#include "cw/view_wrapper.h"

#include "tests/support/fake_embedder.h"
#include "tests/support/test_base.h"

namespace {

using cw::EncodableValue;
using cw::ViewWrapper;
using Table = FlutterOstrelViewProcTable;
using Lines = std::vector<std::string>;

std::string NotProvided(const std::string& method) {
  return "Method '" + method + "' is not provided by the loaded API.";
}

class ViewWrapperTest : public test::TestBase {
 protected:
  std::unique_ptr<ViewWrapper> Create() { return ViewWrapper::Create(embedder_.GetContext()); }

  test::LogCapture log_;
  test::FakeEmbedder embedder_;
};

TEST_F(ViewWrapperTest, OffersWhatTheTableDoes) {
  using Operation = test::Operation<ViewWrapper>;
  std::vector<Operation> operations;
#define ADD(entry, arguments, covered, line, expression, result, neutral)                          \
  operations.push_back({#entry, "view" arguments, TEST_ENTRY_END(Table, entry), covered, line,     \
                        []([[maybe_unused]] ViewWrapper& v) -> std::string { expression }, result, \
                        neutral})
#define HANDLE(entry)                                                          \
  ADD(entry, "", false, "", void* out = &out; v.entry(&out); v.entry(nullptr); \
      return out ? "set" : "null";, "set", "null")
#define NUMBER(entry, operation, result, neutral) \
  ADD(entry, "", false, "", return std::to_string(static_cast<int>(v.operation));, result, neutral)
#define PLAIN(entry, arguments, operation) \
  ADD(entry, arguments, false, "", v.operation; return {};, "", "")
#define SUBSCRIPTION(name)                                   \
  NUMBER(name##Subscribe, name##Subscribe([] {}), "1", "0"); \
  PLAIN(name##Unsubscribe, ", 5", name##Unsubscribe(5))
#define NEW_SUBSCRIPTION(name)                                                                  \
  ADD(name##Subscribe, "", true, NotProvided(#name "Subscribe"),                                \
      return std::to_string(v.name##Subscribe([] {}));                                          \
      , "1", "0");                                                                              \
  ADD(name##Unsubscribe, ", 5", true, NotProvided(#name "Unsubscribe"), v.name##Unsubscribe(5); \
      return {};, "", "")

  HANDLE(GetEGLConfig);
  HANDLE(GetEGLDisplay);
  HANDLE(GetNativeDisplay);
  HANDLE(GetEGLGetProcAddress);
  HANDLE(GetEGLContextHandle);
  HANDLE(GetEGLOffscreenContextHandle);
  NUMBER(GetDevicePixelRatio, GetDevicePixelRatio(), "2", "1");
  NUMBER(GetWindowVisibility, GetWindowVisibility(), "3", "0");
  ADD(GetWindowVisibility, "", true, NotProvided("GetWindowVisibility"),
      return std::to_string(v.GetWindowMode());
      , "1", "0");
  NEW_SUBSCRIPTION(WindowVisibilityChanged);
  PLAIN(MaximizeWindow, "", MaximizeWindow());
  PLAIN(MinimizeWindow, "", MinimizeWindow());
  NUMBER(GetWindowOrientation, GetWindowOrientation(), "90", "0");
  SUBSCRIPTION(WindowOrientationChanged);
  NUMBER(GetWindowWidth, GetWindowWidth(), "1", "0");
  NUMBER(GetWindowHeight, GetWindowHeight(), "1", "0");
  NUMBER(GetDeviceOrientation, GetDeviceOrientation(), "270", "0");
  SUBSCRIPTION(DeviceOrientationChanged);
  NUMBER(IsKeyboardVisible, IsKeyboardVisible(), "1", "0");
  SUBSCRIPTION(KeyboardVisibilityChanged);
  ADD(SetStatusbarVisibility, ", 2", false, "", const ViewWrapper::StatusbarVisibility two{2};
      return std::to_string(v.SetStatusbarVisibility(two));, "1", "0");
  NUMBER(GetStatusbarVisibility, GetStatusbarVisibility(), "1", "0");
  NUMBER(IsStatusbarVisible, IsStatusbarVisible(), "1", "0");
  PLAIN(Fullscreen, "", Fullscreen());
  PLAIN(Activate, "", Activate());
  NUMBER(IsBackgroundVisible, IsBackgroundVisible(), "1", "0");
  PLAIN(SetBackgroundVisible, ", 1", SetBackgroundVisible(true));
  NUMBER(GetWindowType, GetWindowType(), "1", "0");
  NEW_SUBSCRIPTION(ThemeChanged);
  ADD(CreatePopupWindow, ", entry, text, 0", true,
      "Method \"CreatePopupWindow()\" is not provided by the loaded API.",
      v.CreatePopupWindow("entry", "text", nullptr, nullptr);
      return {};, "", "");
  ADD(CloseWindow, ", 1", true, NotProvided("CloseWindow"), v.CloseWindow(EncodableValue());
      return {};, "", "");
#undef NEW_SUBSCRIPTION
#undef SUBSCRIPTION
#undef PLAIN
#undef NUMBER
#undef HANDLE
#undef ADD

  embedder_.answers = {{"GetDevicePixelRatio", 2},
                       {"GetWindowVisibility", 3},
                       {"GetWindowOrientation", 90},
                       {"GetDeviceOrientation", 270}};
  test::CheckDeclaredSizes<ViewWrapper>(
      &embedder_, &embedder_.view, &log_, [this] { return Create(); }, operations);
}

// Theme and payload want three entries each, and tell which is the first that is missing.
TEST_F(ViewWrapperTest, LockedResourcesNeedThreeEntries) {
  const size_t lock = TEST_ENTRY_END(Table, LockResources);
  const size_t unlock = TEST_ENTRY_END(Table, UnlockResources);
  const auto missing = [&](size_t size, size_t entry, const char* name) {
    return size < lock     ? Lines{"[error] " + NotProvided("LockResources")}
           : size < unlock ? Lines{"[error] " + NotProvided("UnlockResources")}
           : size < entry  ? Lines{"[error] " + NotProvided(name)}
                           : Lines{};
  };
  embedder_.answers = {{"LockResources", 7}, {"GetTheme", 0}, {"GetWindowPayload", 0}};
  embedder_.theme = {sizeof(FlutterOstrelTheme), 0, {1, 2, 3, 4}, {"a", nullptr, "c", ""}};
  embedder_.payload = {1};
  for (uint32_t size = 0; size <= sizeof(Table) + 8; ++size) {
    SCOPED_TRACE(size);
    embedder_.view.size = size;
    const auto view = Create();
    embedder_.TakeCalls();
    const bool has_theme = size >= TEST_ENTRY_END(Table, GetTheme);
    EXPECT_EQ(!has_theme, view->GetTheme().flag);
    EXPECT_EQ(missing(size, TEST_ENTRY_END(Table, GetTheme), "GetTheme"), log_.TakeLines());
    EXPECT_EQ(has_theme ? Lines({"LockResources", "GetTheme", "UnlockResources"}) : Lines(),
              embedder_.TakeCalls());
    if (has_theme) {
      EXPECT_EQ("view, 7", embedder_.GetLastArguments());  // The chunk that was locked.
    }
    const bool has_payload = size >= TEST_ENTRY_END(Table, GetWindowPayload);
    EXPECT_EQ(has_payload, view->GetWindowPayload() == EncodableValue(true));
    EXPECT_EQ(missing(size, TEST_ENTRY_END(Table, GetWindowPayload), "GetWindowPayload"),
              log_.TakeLines());
    EXPECT_EQ(
        has_payload ? Lines({"LockResources", "GetWindowPayload", "UnlockResources"}) : Lines(),
        embedder_.TakeCalls());
  }
  embedder_.theme.flag = 0;
  embedder_.answers["GetTheme"] = 1;  // Failed: the default theme, whatever was filled in.
  EXPECT_TRUE(Create()->GetTheme().flag);
}

TEST_F(ViewWrapperTest, UndecodablePayloadIsNullAndUnlocked) {
  embedder_.answers["GetWindowPayload"] = 0;
  const auto view = Create();
  const std::pair<std::vector<uint8_t>, std::string> rows[] = {
      {{12, 255, 0, 0, 0, 4}, "it declares more than it holds"},
      {std::vector<uint8_t>(200000, 12), "it nests lists and maps more than 1024 levels deep"}};
  for (const auto& row : rows) {
    embedder_.payload = row.first;
    embedder_.TakeCalls();
    EXPECT_TRUE(view->GetWindowPayload().IsNull());
    EXPECT_EQ("[error] Undecodable window payload: " + row.second, log_.TakeLine());
    EXPECT_EQ("UnlockResources", embedder_.TakeCalls().back());
  }
  embedder_.payload.clear();
  EXPECT_TRUE(view->GetWindowPayload().IsNull());
  embedder_.view.GetWindowPayload = [](auto*, uint32_t, ForgeBufferView* filled, uint32_t) {
    static const uint8_t data[] = {1};
    *filled = {offsetof(ForgeBufferView, size), data, 1};  // Covers the data, not the size.
    return 0u;
  };
  EXPECT_TRUE(Create()->GetWindowPayload().IsNull());
}

TEST_F(ViewWrapperTest, NumbersOutsideTheSetsAreZero) {
  const auto view = Create();
  for (const uint32_t number : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 45u, 90u, 180u, 270u, 360u, ~0u}) {
    SCOPED_TRACE(number);
    for (const char* entry : {"GetWindowVisibility", "GetWindowOrientation", "GetDeviceOrientation",
                              "GetStatusbarVisibility", "GetWindowType"}) {
      embedder_.answers[entry] = number;
    }
    const auto in = [number](std::initializer_list<uint32_t> set) {
      return std::find(set.begin(), set.end(), number) == set.end() ? 0 : number;
    };
    EXPECT_EQ(in({1, 2, 3, 4, 5}), static_cast<uint32_t>(view->GetWindowVisibility()));
    EXPECT_EQ(number == 3, view->GetWindowMode());
    EXPECT_EQ(in({90, 180, 270}), view->GetWindowOrientation());
    EXPECT_EQ(in({90, 180, 270}), view->GetDeviceOrientation());
    EXPECT_EQ(in({1, 2}), static_cast<uint32_t>(view->GetStatusbarVisibility()));
    EXPECT_EQ(in({1, 2, 3}), static_cast<uint32_t>(view->GetWindowType()));
    embedder_.TakeCalls();
    EXPECT_EQ(number <= 2, view->SetStatusbarVisibility(ViewWrapper::StatusbarVisibility{number}));
    EXPECT_EQ(number <= 2 ? 1u : 0u, embedder_.TakeCalls().size());
  }
}

TEST_F(ViewWrapperTest, SubscriberMayUnsubscribeItself) {
  embedder_.view.KeyboardVisibilityChangedUnsubscribe = [](auto...) {
    test::FakeEmbedder::Get().ReleaseSlot();
  };
  const auto view = Create();
  const auto token = std::make_shared<int>();
  const unsigned int id = view->KeyboardVisibilityChangedSubscribe([&, token] {
    view->KeyboardVisibilityChangedUnsubscribe(1);
    ++*token;  // Still there.
  });
  EXPECT_EQ(1u, id);
  embedder_.Call();
  EXPECT_EQ(1, *token);
  EXPECT_EQ(1, token.use_count());
}

TEST_F(ViewWrapperTest, PopupWindowAnswersItsCallback) {
  const auto view = Create();
  std::vector<std::pair<EncodableValue, std::string>> results;
  const auto callback = [&](const EncodableValue& value, std::string text) {
    results.emplace_back(value, text);
  };
  embedder_.TakeCalls();
  view->CreatePopupWindow("", "text", nullptr, callback);
  view->CreatePopupWindow("", "text", nullptr, nullptr);
  EXPECT_EQ(Lines(), embedder_.TakeCalls());
  const EncodableValue payload(7);
  view->CreatePopupWindow("entry", "text", &payload, callback);
  EXPECT_EQ("view, entry, text, 5", embedder_.GetLastArguments());
  EXPECT_EQ(payload.Serialize(), forge::Buffer(embedder_.data));
  embedder_.Call({1}, "done");
  const std::vector<std::pair<EncodableValue, std::string>> expected = {
      {EncodableValue(), "Expected not empty entry point"}, {true, "done"}};
  EXPECT_EQ(expected, results);
}

}  // namespace
