#include "cw/application_wrapper.h"

#include <stdexcept>

#include "tests/support/fake_embedder.h"
#include "tests/support/test_base.h"

namespace {

using cw::ApplicationWrapper;
using cw::EncodableValue;

class ApplicationWrapperTest : public test::TestBase {
 protected:
  std::unique_ptr<ApplicationWrapper> Create() {
    return ApplicationWrapper::Create(embedder_.GetContext());
  }

  test::LogCapture log_;
  test::FakeEmbedder embedder_;
};

template <typename Numbers>
std::string Join(const Numbers& numbers) {
  std::string text;
  for (const auto& number : numbers) text += std::to_string(number);
  return text;
}

TEST_F(ApplicationWrapperTest, OffersWhatTheTableDoes) {
  using Table = FlutterOstrelApplicationProcTable;
#define ROW(entry, arguments, must_be_covered) \
#entry, arguments, TEST_ENTRY_END(Table, entry), must_be_covered
  const std::string no_permissions =
      "Current embedder version does not support HasPermission() method. Please, update flutter "
      "cache by removing `flutter/bin/cache` directory and running `flutter precache` command.";
  const std::vector<test::Operation<ApplicationWrapper>> operations = {
      {ROW(GetApplicationInfo, "application, 2", false), "",
       [](auto& a) { return a.GetApplicationInfo(ApplicationWrapper::InfoType{2}); }, "text", ""},
      {ROW(GetDartEntryPointArgs, "application", false), "",
       [](auto& a) { return std::to_string(a.GetDartEntryPointArgs().size()); }, "2", "0"},
      {ROW(GetOSVersion, "", false), "", [](auto& a) { return Join(a.GetOSVersion()); }, "1234",
       "0000"},
      {ROW(GetEmbedderVersion, "", false), "", [](auto& a) { return Join(a.GetEmbedderVersion()); },
       "123", "000"},
      {ROW(EnqueueTask, "application, 7", false), "",
       [](auto& a) { return a.EnqueueTask([] {}, 7), ""; }, "", ""},
      {ROW(EnqueueTask, "application, 7", false), "",
       [](auto& a) { return a.Invoke([] {}, 7), ""; }, "", ""},
      {ROW(Exit, "application, 3", false), "", [](auto& a) { return a.Exit(3), ""; }, "", ""},
      {ROW(GetPath, "application, 1", false), "",
       [](auto& a) { return a.GetLibraryPath("foo").string(); }, "text/libfoo.so", "libfoo.so"},
      {ROW(HasPermission, "application, Camera", false), no_permissions,
       [](auto& a) { return std::to_string(a.HasPermission(cw::Permission::kCamera)); }, "1", "0"},
      {ROW(CreateMainWindow, "application, a, b, 0", true),
       "Method 'CreateMainWindow' is not provided by the loaded API.",
       [](auto& a) { return std::to_string(a.CreateMainWindow("a", "b", nullptr, nullptr)); }, "1",
       "0"},
  };
#undef ROW
  embedder_.answers = {{"CreateMainWindow", 0}};
  test::CheckDeclaredSizes<ApplicationWrapper>(
      &embedder_, &embedder_.application, &log_, [this] { return Create(); }, operations);
}

TEST_F(ApplicationWrapperTest, KindsOutsideTheSetsAreTheDefaults) {
  const auto application = Create();
  for (const uint32_t kind : {0u, 1u, 2u, 3u, 4u, ~0u}) {
    application->GetApplicationInfo(ApplicationWrapper::InfoType{kind});
    const uint32_t asked = kind == 2 || kind == 3 ? kind : 1;
    EXPECT_EQ("application, " + std::to_string(asked), embedder_.GetLastArguments());
  }
  for (const uint32_t kind : {0u, 1u, 7u, 23u, 24u, ~0u}) {
    application->GetPath(ApplicationWrapper::DirectoryType{kind});
    const uint32_t asked = kind >= 1 && kind <= 23 ? kind : 7;
    EXPECT_EQ("application, " + std::to_string(asked), embedder_.GetLastArguments());
  }
  EXPECT_EQ("text", application->GetLibraryPath(""));
  EXPECT_EQ("application, 1", embedder_.GetLastArguments());
}

TEST_F(ApplicationWrapperTest, TextEndsAtItsFirstNulAndMustKeepItsSize) {
  const auto application = Create();
  embedder_.text = std::string("cut\0off", 7);
  EXPECT_EQ("cut", application->GetPath(ApplicationWrapper::DirectoryType::kDefault));
  embedder_.answers["other size"] = 1;
  EXPECT_EQ("", application->GetPath(ApplicationWrapper::DirectoryType::kDefault));
  embedder_.application.GetPath = [](auto...) { return ~size_t{0}; };
  EXPECT_EQ("", Create()->GetLibraryPath(""));
}

TEST_F(ApplicationWrapperTest, ArgumentsAreCopiedInOrder) {
  const auto application = Create();
  EXPECT_EQ((std::vector<std::string>{"one", "two"}), application->GetDartEntryPointArgs());
  embedder_.dart_arguments = {"one", nullptr};
  try {
    application->GetDartEntryPointArgs();
    ADD_FAILURE() << "a null argument must throw";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ("basic_string: construction from null is not valid", error.what());
  }
  embedder_.application.GetDartEntryPointArgs = [](auto*, int* count, auto*) { *count = -1; };
  EXPECT_TRUE(Create()->GetDartEntryPointArgs().empty());
  embedder_.application.GetDartEntryPointArgs = [](auto*, int* count, auto*) { *count = 2; };
  EXPECT_TRUE(Create()->GetDartEntryPointArgs().empty());  // The array stayed null.
}

// An older embedder lowers the size of a version: what it does not cover is 0.
TEST_F(ApplicationWrapperTest, VersionHasTheCoveredNumbersOnly) {
  embedder_.application.GetOSVersion = [](FlutterOstrelOSVersion* version, uint32_t) {
    *version = {offsetof(FlutterOstrelOSVersion, numbers[2]) + 3, {5, 6, 7, 8}};
    return 1u;
  };
  EXPECT_EQ((ApplicationWrapper::OSVersion{5, 6, 0, 0}), Create()->GetOSVersion());
  embedder_.answers["GetEmbedderVersion"] = 0;
  EXPECT_EQ((ApplicationWrapper::EmbedderVersion{}), Create()->GetEmbedderVersion());
}

TEST_F(ApplicationWrapperTest, TaskRunsWhenTheEmbedderCallsItAndMayThrow) {
  const auto application = Create();
  int runs = 0;
  const auto count = std::make_shared<int>();
  application->Invoke([&runs, count] { ++runs; }, 9);
  EXPECT_EQ("application, 9", embedder_.GetLastArguments());
  embedder_.Call();
  EXPECT_EQ(1, runs);
  embedder_.ReleaseSlot();
  EXPECT_EQ(1, count.use_count());

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
  EXPECT_EQ("application, Camera", embedder_.GetLastArguments());
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
  EXPECT_EQ("application, first, second, 6", embedder_.GetLastArguments());
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
