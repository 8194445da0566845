// What the application's operations do where the embedder offers them; declared_sizes_test.cpp has
// the rest.
#include "cw/application_wrapper.h"

#include <stdexcept>

#include "tests/support/fake_embedder.h"

namespace {

using cw::ApplicationWrapper;
using cw::Permission;
using Directory = ApplicationWrapper::DirectoryType;
using ApplicationWrapperTest = test::WrapperTest<ApplicationWrapper>;

TEST_F(ApplicationWrapperTest, KindsOutsideTheSetsAreTheDefaults) {
  answers = {{"GetApplicationInfo", 0}, {"GetPath", 0}};
  for (const uint32_t kind : {0u, 1u, 2u, 3u, 4u, 7u, 23u, 24u, ~0u}) {
    wrapper_->GetApplicationInfo(ApplicationWrapper::InfoType{kind});
    wrapper_->GetPath(Directory{kind});
    const auto information = std::to_string(kind == 2 || kind == 3 ? kind : 1);
    const auto path = std::to_string(kind >= 1 && kind <= 23 ? kind : 7);
    EXPECT_EQ("GetApplicationInfo(" + information + ", 0) GetPath(" + path + ", 0)", TakeTrace());
  }
}

TEST_F(ApplicationWrapperTest, TextEndsAtItsFirstNulAndMustKeepItsSize) {
  text = std::string("cut\0off", 7);
  EXPECT_EQ("cut", wrapper_->GetPath(Directory::kDefault));
  text.assign((16 << 20) - 1, 'x');
  EXPECT_TRUE(wrapper_->GetPath(Directory::kDefault) == text);
  text += "x";
  EXPECT_EQ("", wrapper_->GetPath(Directory::kDefault));
  text = "text";
  within["GetPath"] = [&] { text = "cut"; };
  EXPECT_EQ("", wrapper_->GetPath(Directory::kDefault));
}

TEST_F(ApplicationWrapperTest, TaskRunsWhenTheEmbedderCallsItAndMayThrow) {
  within["task"] = [] { throw std::runtime_error("cause"); };
  wrapper_->Invoke(Watch("task"), 9);
  Call();
  EXPECT_NE("", log_.TakeLine());
  wrapper_->EnqueueTask(nullptr, 0);
  Call();
  EXPECT_EQ("EnqueueTask(9) task() ~task() EnqueueTask(0)", TakeTrace());
}

TEST_F(ApplicationWrapperTest, PermissionNamesFollowTheEmbeddersNumbers) {
  EXPECT_EQ("Audio", cw::PermissionToStringView(Permission::kAudio));
  EXPECT_EQ("Serial", cw::PermissionToStringView(Permission{24}));
  EXPECT_EQ("Contacts", cw::PermissionToStringView(Permission{30}));
  for (const uint32_t number : {0u, 31u, ~0u}) {
    EXPECT_FALSE(wrapper_->HasPermission(Permission{number}));
    EXPECT_NE("", log_.TakeLine());
  }
  EXPECT_TRUE(wrapper_->HasPermission(std::string_view("Camera2").substr(0, 6)));
  EXPECT_EQ("HasPermission(Camera2, 6)", TakeTrace());
}

TEST_F(ApplicationWrapperTest, MainWindowAnswersOnce) {
  const std::pair<std::vector<uint8_t>, const char*> rows[] = {
      {{3, 42, 0, 0, 0}, "answer(3, 42, 0, 0, 0, text)"},
      {{}, "answer(0, text)"},
      {{12, 255, 0, 0, 0, 4}, "answer(0, text)"},  // A list of absurd length.
  };
  answers["CreateMainWindow"] = 0;
  const cw::EncodableValue value(true);
  for (const auto& [bytes, answer] : rows) {
    EXPECT_TRUE(wrapper_->CreateMainWindow("a", "b", &value, Watch("answer")));
    for (int i = 0; i < 2; ++i) Call(bytes, "text");
    EXPECT_EQ("CreateMainWindow(a, b, 1) " + std::string(answer) + " ~answer()", TakeTrace());
  }
  EXPECT_NE("", log_.TakeLine());
  answers["CreateMainWindow"] = 1;
  EXPECT_FALSE(wrapper_->CreateMainWindow("", "", nullptr, nullptr));
}

}  // namespace
