// What the view's operations do where the embedder offers them; declared_sizes_test.cpp has the
// rest.
#include "cw/view_wrapper.h"

#include "tests/support/fake_embedder.h"
#include "tests/support/test_base.h"

namespace {

using cw::EncodableValue;
using cw::ViewWrapper;

class ViewWrapperTest : public test::TestBase {
 protected:
  std::unique_ptr<ViewWrapper> Create() { return ViewWrapper::Create(embedder_.GetContext()); }

  test::LogCapture log_;
  test::FakeEmbedder embedder_;
};

TEST_F(ViewWrapperTest, UndecodablePayloadIsNullAndUnlocked) {
  embedder_.answers["GetWindowPayload"] = 0;
  const auto view = Create();
  const std::pair<std::vector<uint8_t>, std::string> rows[] = {
      {{12, 255, 0, 0, 0, 4}, "it declares more than it holds"},
      {std::vector<uint8_t>(200000, 12), "it nests lists and maps more than 1024 levels deep"}};
  for (const auto& row : rows) {
    embedder_.payload = row.first;
    EXPECT_TRUE(view->GetWindowPayload().IsNull());
    EXPECT_EQ("[error] Undecodable window payload: " + row.second, log_.TakeLine());
    EXPECT_EQ("UnlockResources", embedder_.TakeCalls().back());
  }
  embedder_.payload = {1};
  embedder_.answers["GetWindowPayload"] = 1;  // Failed, whatever was filled in.
  EXPECT_TRUE(view->GetWindowPayload().IsNull());
}

TEST_F(ViewWrapperTest, NumbersOutsideTheSetsAreZero) {
  const auto view = Create();
  for (const uint32_t number :
       {0u, 1u, 2u, 3u, 4u, 5u, 6u, 45u, 90u, 100u, 180u, 270u, 360u, ~0u}) {
    SCOPED_TRACE(number);
    for (const char* entry : {"GetWindowVisibility", "GetWindowOrientation", "GetDeviceOrientation",
                              "GetStatusbarVisibility", "GetWindowType"}) {
      embedder_.answers[entry] = number;
    }
    const uint32_t degrees = number == 90 || number == 180 || number == 270 ? number : 0;
    const auto up_to = [number](uint32_t last) { return number <= last ? number : 0; };
    EXPECT_EQ(up_to(5), static_cast<uint32_t>(view->GetWindowVisibility()));
    EXPECT_EQ(number == 3, view->GetWindowMode());
    EXPECT_EQ(degrees, view->GetWindowOrientation());
    EXPECT_EQ(degrees, view->GetDeviceOrientation());
    EXPECT_EQ(up_to(2), static_cast<uint32_t>(view->GetStatusbarVisibility()));
    EXPECT_EQ(up_to(3), static_cast<uint32_t>(view->GetWindowType()));
    embedder_.TakeCalls();
    EXPECT_EQ(number <= 2, view->SetStatusbarVisibility(ViewWrapper::StatusbarVisibility{number}));
    EXPECT_EQ(number <= 2 ? 1u : 0u, embedder_.TakeCalls().size());
  }
}

TEST_F(ViewWrapperTest, SubscriberMayUnsubscribeItself) {
  embedder_.within["KeyboardVisibilityChangedUnsubscribe"] = [&] { embedder_.ReleaseSlot(); };
  const auto view = Create();
  const auto token = std::make_shared<int>();
  view->KeyboardVisibilityChangedSubscribe([&, token] {
    view->KeyboardVisibilityChangedUnsubscribe(1);
    ++*token;  // Still there.
  });
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
  EXPECT_EQ("", embedder_.TakeTrace());
  const EncodableValue payload(7);
  view->CreatePopupWindow("entry", "text", &payload, callback);
  EXPECT_EQ("CreatePopupWindow(view, entry, text, 5)", embedder_.TakeTrace());
  EXPECT_EQ(payload.Serialize(), forge::Buffer(embedder_.data));
  embedder_.Call({1}, "done");
  const std::vector<std::pair<EncodableValue, std::string>> expected = {
      {EncodableValue(), "Expected not empty entry point"}, {true, "done"}};
  EXPECT_EQ(expected, results);
}

}  // namespace
