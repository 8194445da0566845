// What the embedder offers an application: versions, permissions, paths, arguments, its main
// window, and its thread, for which this is the dispatcher.
//
// An operation that the embedder does not offer does nothing and returns the empty result.
//
// Threads: the embedder's; EnqueueTask and Invoke may be called from any.
// Errors:  only HasPermission and CreateMainWindow log. A null text among the entry point's
//          arguments throws std::logic_error; nothing else throws. What a task or a callback throws
//          is an error line.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cw/encodable_value.h"
#include "forge/dispatcher.h"
#include "forge/export.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace cw {

// The numbers are the embedder's. They are alphabetical but for kSerial and kContacts, which stay
// where they are.
enum class Permission : uint32_t {
  kAudio = 1,
  kAuthService = 2,
  kBluetooth = 3,
  kCall = 4,
  kCamera = 5,
  kDeviceInfo = 6,
  kDocuments = 7,
  kDownloads = 8,
  kInternet = 9,
  kLocation = 10,
  kManagedConfiguration = 11,
  kMarket = 12,
  kMediaIndexing = 13,
  kMicrophone = 14,
  kMusic = 15,
  kNFC = 16,
  kPictures = 17,
  kPrinting = 18,
  kPublicDir = 19,
  kPushNotifications = 20,
  kRemovableMedia = 21,
  kScreenCapture = 22,
  kSecureStorage = 23,
  kSerial = 24,
  kSensors = 25,
  kUserdataWiper = 26,
  kUserDirs = 27,
  kVideos = 28,
  kWebView = 29,
  kContacts = 30,
};

// The embedder's name of a permission ("Audio"); empty for any other number.
FORGE_EXPORT std::string_view PermissionToStringView(Permission permission);

class FORGE_EXPORT ApplicationWrapper final : public forge::IDispatcher {
 public:
  // What the kinds mean is the embedder's matter; InfoType{2} asks for kind 2. Any other number
  // than these counts as the default.
  enum class InfoType : uint32_t { kDefault = 1 };                       // 1 to 3.
  enum class DirectoryType : uint32_t { kLibraries = 1, kDefault = 7 };  // 1 to 23.

  using OSVersion = std::array<uint32_t, 4>;
  using EmbedderVersion = std::array<uint32_t, 3>;

  // Null when the context has no application, or its table cannot be loaded.
  static std::unique_ptr<ApplicationWrapper> Create(FlutterOstrelPluginContext* context);

  ApplicationWrapper(const ApplicationWrapper&) = delete;
  ApplicationWrapper& operator=(const ApplicationWrapper&) = delete;

  // Zeros when not offered, and for numbers that an older embedder does not know.
  OSVersion GetOSVersion() const;
  EmbedderVersion GetEmbedderVersion() const;

  // Runs the task later on the embedder's thread, or drops it when its engine ends first. What
  // `value` means is the embedder's matter.
  void EnqueueTask(std::function<void()> task, uint32_t value) const;
  void Invoke(const std::function<void()>& task, uint32_t value) override;

  // Ends the application.
  void Exit(int code);

  bool HasPermission(std::string_view permission) const;
  bool HasPermission(Permission permission) const;

  // Opens the main window, for which the embedder is given two texts and a payload (null: none).
  // The callback (empty: none) is called at most once, with what the window answers. False when
  // the window cannot be opened.
  bool CreateMainWindow(const std::string& first_text, const std::string& second_text,
                        const EncodableValue* payload,
                        const std::function<void(const EncodableValue&, std::string)>& callback);

  // At most 16 MiB, as the paths below; empty for more.
  std::string GetApplicationInfo(InfoType type) const;
  std::filesystem::path GetPath(DirectoryType type) const;

  // The directory of the application's libraries, or, in it, the library of that name ("foo":
  // libfoo.so).
  std::filesystem::path GetLibraryPath(std::string_view name) const;

  std::vector<std::string> GetDartEntryPointArgs() const;

 private:
  using Table = FlutterOstrelApplicationProcTable;
  using TextQuery = size_t (*Table::*)(_FlutterOstrelApplication*, uint32_t, char*, size_t);

  ApplicationWrapper(_FlutterOstrelApplication* application, const Table& table)
      : application_(application), table_(table) {}

  std::string GetText(TextQuery query, uint32_t kind) const;

  _FlutterOstrelApplication* const application_;
  const Table table_;
};

}  // namespace cw
