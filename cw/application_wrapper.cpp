#include "cw/application_wrapper.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "cw/embedder_slot.h"
#include "cw/embedder_table.h"
#include "forge/logger.h"

namespace cw {
namespace {

constexpr std::array<std::string_view, 31> kPermissionNames = {
    "",
    "Audio",
    "AuthService",
    "Bluetooth",
    "Call",
    "Camera",
    "DeviceInfo",
    "Documents",
    "Downloads",
    "Internet",
    "Location",
    "ManagedConfiguration",
    "Market",
    "MediaIndexing",
    "Microphone",
    "Music",
    "NFC",
    "Pictures",
    "Printing",
    "PublicDir",
    "PushNotifications",
    "RemovableMedia",
    "ScreenCapture",
    "SecureStorage",
    "Serial",
    "Sensors",
    "UserdataWiper",
    "UserDirs",
    "Videos",
    "WebView",
    "Contacts",
};

// A larger answer is no size of a text, but for example the error code -1.
constexpr std::size_t kLargestText = std::size_t{16} << 20;

constexpr details::NumberSet kInfoTypes{1, 3, 1, 1};
constexpr details::NumberSet kDirectoryTypes{1, 23, 1, 7};

// Asks for a version; the numbers that the answer does not cover stay 0.
template <std::size_t kCount, typename Table, typename Version>
std::array<uint32_t, kCount> AskForVersion(const Table& table,
                                           uint32_t (*Table::*ask)(Version*, uint32_t)) {
  std::array<uint32_t, kCount> numbers{};
  Version version{};
  static_assert(sizeof(version.numbers) == sizeof(numbers), "All of them");
  version.size = sizeof(version);
  const uint32_t size = sizeof(version);
  if (details::CallIfSet(table, ask, 0u, &version, size) == 0) return numbers;
  for (std::size_t i = 0; i < kCount; ++i) {
    if (forge::Reaches(version, version.numbers[i])) numbers[i] = version.numbers[i];
  }
  return numbers;
}

}  // namespace

std::string_view PermissionToStringView(Permission permission) {
  const auto number = static_cast<std::size_t>(permission);
  return number < kPermissionNames.size() ? kPermissionNames[number] : std::string_view();
}

std::unique_ptr<ApplicationWrapper> ApplicationWrapper::Create(
    FlutterOstrelPluginContext* context) {
  Table table;
  if (!details::LoadTable(context, &FlutterOstrelPluginContext::application,
                          &FlutterOstrelPluginContext::ApplicationProcTableLoad, &table)) {
    return nullptr;
  }
  return std::unique_ptr<ApplicationWrapper>(new ApplicationWrapper(context->application, table));
}

ApplicationWrapper::OSVersion ApplicationWrapper::GetOSVersion() const {
  return AskForVersion<4>(table_, &Table::GetOSVersion);
}

ApplicationWrapper::EmbedderVersion ApplicationWrapper::GetEmbedderVersion() const {
  return AskForVersion<3>(table_, &Table::GetEmbedderVersion);
}

void ApplicationWrapper::EnqueueTask(std::function<void()> task, uint32_t value) const {
  if (!forge::Set(table_, &Table::EnqueueTask)) return;
  const auto slot = details::CreateFencedSlot<FlutterOstrelSlot>("enqueued task", std::move(task));
  table_.EnqueueTask(application_, &slot, value);
}

void ApplicationWrapper::Invoke(const std::function<void()>& task, uint32_t value) {
  EnqueueTask(task, value);
}

void ApplicationWrapper::Exit(int code) {
  details::CallIfSet(table_, &Table::Exit, application_, code);
}

bool ApplicationWrapper::HasPermission(std::string_view permission) const {
  if (!forge::Set(table_, &Table::HasPermission)) {
    FORGE_LOG(kError) << "Current embedder version does not support HasPermission() method. "
                      << "Please, update flutter cache by removing `flutter/bin/cache` directory "
                      << "and running `flutter precache` command.";
    return false;
  }
  if (permission.empty()) {
    FORGE_LOG(kError) << "Contract violation: permission string cannot be empty.";
    return false;
  }
  return table_.HasPermission(application_, permission.data(), permission.size());
}

bool ApplicationWrapper::HasPermission(Permission permission) const {
  return HasPermission(PermissionToStringView(permission));
}

bool ApplicationWrapper::CreateMainWindow(
    const std::string& first_text, const std::string& second_text, const EncodableValue* payload,
    const std::function<void(const EncodableValue&, std::string)>& callback) {
  if (!FORGE_COVERED_OR_LOG(table_, CreateMainWindow)) return false;
  const forge::Buffer bytes = payload ? payload->Serialize() : forge::Buffer();
  FlutterOstrelWindowParameters parameters{};
  parameters.size = sizeof(parameters);
  parameters.payload = bytes.GetData();
  parameters.payload_size = bytes.GetSize();
  parameters.first_text = first_text.c_str();
  parameters.second_text = second_text.c_str();
  const auto slot = details::CreateResultSlot(callback);
  return table_.CreateMainWindow(application_, &parameters, slot ? &*slot : nullptr) == 0;
}

std::string ApplicationWrapper::GetApplicationInfo(InfoType type) const {
  return GetText(&Table::GetApplicationInfo, kInfoTypes.Restrict(static_cast<uint32_t>(type)));
}

std::filesystem::path ApplicationWrapper::GetPath(DirectoryType type) const {
  return GetText(&Table::GetPath, kDirectoryTypes.Restrict(static_cast<uint32_t>(type)));
}

std::filesystem::path ApplicationWrapper::GetLibraryPath(std::string_view name) const {
  const std::filesystem::path directory = GetPath(DirectoryType::kLibraries);
  return name.empty() ? directory : directory / ("lib" + std::string(name) + ".so");
}

std::vector<std::string> ApplicationWrapper::GetDartEntryPointArgs() const {
  int count = 0;
  const char* const* arguments = nullptr;
  details::CallIfSet(table_, &Table::GetDartEntryPointArgs, application_, &count, &arguments);
  if (count < 1 || !arguments) return {};
  return {arguments, arguments + count};  // A null text throws here.
}

// Asks the embedder for the size and then for the text. The result is empty unless both answers
// have the same size.
std::string ApplicationWrapper::GetText(TextQuery query, uint32_t kind) const {
  const auto ask = [&](char* buffer, std::size_t size) {
    return details::CallIfSet(table_, query, std::size_t{0}, application_, kind, buffer, size);
  };
  const std::size_t size = ask(nullptr, 0);
  if (size == 0 || size > kLargestText) return {};
  std::string text(size, '\0');
  if (ask(text.data(), size) != size) return {};
  text.resize(strnlen(text.data(), size));
  return text;
}

}  // namespace cw
