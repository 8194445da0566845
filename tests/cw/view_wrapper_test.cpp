// What the view's operations do where the embedder offers them; declared_sizes_test.cpp has the
// rest.
#include "cw/view_wrapper.h"

#include "tests/support/fake_embedder.h"

namespace {

using cw::ViewWrapper;
using ViewWrapperTest = test::WrapperTest<ViewWrapper>;

TEST_F(ViewWrapperTest, UndecodablePayloadIsNullAndUnlocked) {
  answers["GetWindowPayload"] = 0;
  payload = {12, 255, 0, 0, 0, 4};
  EXPECT_TRUE(wrapper_->GetWindowPayload().IsNull());
  EXPECT_NE("", log_.TakeLine());
  EXPECT_EQ("UnlockResources", TakeCalls().back());
  answers["GetWindowPayload"] = 1;  // Failed, whatever was filled in.
  EXPECT_TRUE(wrapper_->GetWindowPayload().IsNull());
}

TEST_F(ViewWrapperTest, NumbersOutsideTheSetsAreZero) {
  for (const uint32_t number : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 90u, 100u, 180u, 270u, 360u, ~0u}) {
    SCOPED_TRACE(number);
    for (const char* entry : {"GetWindowVisibility", "GetWindowOrientation", "GetDeviceOrientation",
                              "GetStatusbarVisibility", "GetWindowType"}) {
      answers[entry] = number;
    }
    const uint32_t degrees = number == 90 || number == 180 || number == 270 ? number : 0;
    const auto up_to = [number](uint32_t last) { return number <= last ? number : 0; };
    EXPECT_EQ(up_to(5), uint32_t(wrapper_->GetWindowVisibility()));
    EXPECT_EQ(number == 3, wrapper_->GetWindowMode());
    EXPECT_EQ(degrees, wrapper_->GetWindowOrientation());
    EXPECT_EQ(degrees, wrapper_->GetDeviceOrientation());
    EXPECT_EQ(up_to(2), uint32_t(wrapper_->GetStatusbarVisibility()));
    EXPECT_EQ(up_to(3), uint32_t(wrapper_->GetWindowType()));
    EXPECT_EQ(number <= 2,
              wrapper_->SetStatusbarVisibility(ViewWrapper::StatusbarVisibility{number}));
    EXPECT_EQ(number <= 2, TakeCalls().back() == "SetStatusbarVisibility");
  }
}

TEST_F(ViewWrapperTest, PopupWindowNeedsAnEntryPoint) {
  wrapper_->CreatePopupWindow("", "text", nullptr, Watch("answer"));
  wrapper_->CreatePopupWindow("", "text", nullptr, nullptr);
  EXPECT_EQ("answer(0, Expected not empty entry point) ~answer()", TakeTrace());
  wrapper_->CreatePopupWindow("entry", "text", nullptr, Watch("answer"));
  Call({1}, "done");
  EXPECT_EQ("CreatePopupWindow(entry, text, 0) answer(1, done) ~answer()", TakeTrace());
}

}  // namespace
