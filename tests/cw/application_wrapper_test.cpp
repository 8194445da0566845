// What the application's operations do where the embedder offers them; declared_sizes_test.cpp has
// the rest.
#include "cw/application_wrapper.h"

#include <stdexcept>

#include "tests/support/fake_embedder.h"
#include "tests/support/test_base.h"

namespace {

using cw::ApplicationWrapper;
using cw::EncodableValue;
using Directory = ApplicationWrapper::DirectoryType;

class ApplicationWrapperTest : public test::TestBase {
 protected:
  std::unique_ptr<ApplicationWrapper> Create() {
    auto application = ApplicationWrapper::Create(embedder_.GetContext());
    embedder_.TakeCalls();
    return application;
  }

  test::LogCapture log_;
  test::FakeEmbedder embedder_;
};

TEST_F(ApplicationWrapperTest, KindsOutsideTheSetsAreTheDefaults) {
  const auto application = Create();
  embedder_.text = "";
  for (const uint32_t kind : {0u, 1u, 2u, 3u, 4u, 7u, 23u, 24u, ~0u}) {
    SCOPED_TRACE(kind);
    application->GetApplicationInfo(ApplicationWrapper::InfoType{kind});
    const std::string information = std::to_string(kind == 2 || kind == 3 ? kind : 1);
    EXPECT_EQ(0u,
              embedder_.TakeTrace().find("GetApplicationInfo(application, " + information + ")"));
    application->GetPath(Directory{kind});
    const std::string path = std::to_string(kind >= 1 && kind <= 23 ? kind : 7);
    EXPECT_EQ(0u, embedder_.TakeTrace().find("GetPath(application, " + path + ")"));
  }
}

TEST_F(ApplicationWrapperTest, TextEndsAtItsFirstNulAndMustKeepItsSize) {
  const auto application = Create();
  EXPECT_EQ("text", application->GetLibraryPath(""));
  embedder_.text = std::string("cut\0off", 7);
  EXPECT_EQ("cut", application->GetPath(Directory::kDefault));
  embedder_.answers["other size"] = 1;
  EXPECT_EQ("", application->GetPath(Directory::kDefault));
  embedder_.application.GetPath = [](auto...) { return ~size_t{0}; };
  EXPECT_EQ("", Create()->GetLibraryPath(""));
}

TEST_F(ApplicationWrapperTest, ArgumentsAreCopiedInOrder) {
  const auto application = Create();
  EXPECT_EQ((std::vector<std::string>{"one", "two"}), application->GetDartEntryPointArgs());
  embedder_.dart_arguments = {"one", nullptr};
  EXPECT_THROW(application->GetDartEntryPointArgs(), std::logic_error);
  embedder_.application.GetDartEntryPointArgs = [](auto*, int* count, auto*) { *count = -1; };
  EXPECT_TRUE(Create()->GetDartEntryPointArgs().empty());
  embedder_.application.GetDartEntryPointArgs = [](auto*, int* count, auto*) { *count = 2; };
  EXPECT_TRUE(Create()->GetDartEntryPointArgs().empty());  // The array stayed null.
}

TEST_F(ApplicationWrapperTest, TaskRunsWhenTheEmbedderCallsItAndMayThrow) {
  const auto application = Create();
  const auto runs = std::make_shared<int>();
  application->Invoke([runs] { ++*runs; }, 9);
  EXPECT_EQ("EnqueueTask(application, 9)", embedder_.TakeTrace());
  embedder_.Call();
  EXPECT_EQ(1, *runs);
  embedder_.ReleaseSlot();
  EXPECT_EQ(1, runs.use_count());

  application->EnqueueTask([] { throw std::runtime_error("cause"); }, 0);
  embedder_.Call();
  EXPECT_NE(std::string::npos, log_.TakeLine().find("cause"));
  application->EnqueueTask(nullptr, 0);
  embedder_.Call();
}

TEST_F(ApplicationWrapperTest, PermissionNamesFollowTheEmbeddersNumbers) {
  EXPECT_EQ("Audio", cw::PermissionToStringView(cw::Permission::kAudio));
  EXPECT_EQ("NFC", cw::PermissionToStringView(cw::Permission{16}));
  EXPECT_EQ("Serial", cw::PermissionToStringView(cw::Permission{24}));
  EXPECT_EQ("Sensors", cw::PermissionToStringView(cw::Permission::kSensors));
  EXPECT_EQ("Contacts", cw::PermissionToStringView(cw::Permission{30}));
  const auto application = Create();
  for (const uint32_t number : {0u, 31u, ~0u}) {
    EXPECT_FALSE(application->HasPermission(cw::Permission{number}));
    EXPECT_EQ("[error] Contract violation: permission string cannot be empty.", log_.TakeLine());
  }
  EXPECT_TRUE(application->HasPermission(std::string_view("Camera2").substr(0, 6)));
  EXPECT_EQ("HasPermission(application, Camera)", embedder_.TakeTrace());
}

TEST_F(ApplicationWrapperTest, MainWindowAnswersOnce) {
  const auto application = Create();
  embedder_.answers["CreateMainWindow"] = 0;
  const EncodableValue payload("open");
  std::vector<std::pair<EncodableValue, std::string>> results;
  const auto open = [&] {
    return application->CreateMainWindow(
        "first", "second", &payload,
        [&](const EncodableValue& value, std::string text) { results.emplace_back(value, text); });
  };
  EXPECT_TRUE(open());
  EXPECT_EQ("CreateMainWindow(application, first, second, 6)", embedder_.TakeTrace());
  EXPECT_EQ(payload, EncodableValue::Deserialize(embedder_.data.data(), embedder_.data.size()));
  embedder_.Call({3, 42, 0, 0, 0}, "text");
  embedder_.Call({3, 43, 0, 0, 0}, "again");
  open();
  embedder_.Call({}, nullptr);
  open();
  embedder_.Call({12, 255, 0, 0, 0, 4}, nullptr);  // A list of absurd length.
  EXPECT_EQ("[error] Undecodable window result: it declares more than it holds", log_.TakeLine());
  const std::vector<std::pair<EncodableValue, std::string>> expected = {
      {int32_t{42}, "text"}, {EncodableValue(), ""}, {EncodableValue(), ""}};
  EXPECT_EQ(expected, results);

  embedder_.answers["CreateMainWindow"] = 1;
  EXPECT_FALSE(application->CreateMainWindow("", "", nullptr, nullptr));
  EXPECT_FALSE(embedder_.HasSlot());
  EXPECT_TRUE(embedder_.data.empty());
}

}  // namespace
