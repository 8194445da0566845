// The embedder's services for an application: versions, permissions, paths, arguments, the main
// window, and the embedder's thread, for which this object is the dispatcher.
//
//   const auto application = cw::ApplicationWrapper::Create(context);
//   if (application && application->HasPermission(cw::Permission::kCamera)) OpenCamera();
//   application->EnqueueTask([] { ShowPicture(); }, 0);  // From any thread.
//
// An operation that the embedder does not offer does nothing and returns the empty result.
//
// Threads:   the embedder's thread; EnqueueTask and Invoke may be called from any thread.
// Ownership: the object keeps the application's handle, which is valid as long as the process, and
//            a copy of the table. The context is needed during Create only.
// Errors:    only HasPermission and CreateMainWindow log. A null text among the entry point's
//            arguments throws std::logic_error; nothing else throws except std::bad_alloc. An
//            exception of a task or of a callback is an error line.
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

// The permissions of an application. The numbers belong to the embedder's interface and never
// change. They are alphabetical except for kSerial and kContacts.
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

// Returns the embedder's name of a permission, for example "Audio". Any other number gives the
// empty text. The text is a literal.
FORGE_EXPORT std::string_view PermissionToStringView(Permission permission);

class FORGE_EXPORT ApplicationWrapper final : public forge::IDispatcher {
 public:
  // The kinds of information, 1 to 3. The embedder defines their meaning; InfoType{2} asks for
  // kind 2. Any other number counts as kDefault.
  enum class InfoType : uint32_t { kDefault = 1 };

  // The kinds of directories, 1 to 23, by the same rule.
  enum class DirectoryType : uint32_t { kLibraries = 1, kDefault = 7 };

  using OSVersion = std::array<uint32_t, 4>;
  using EmbedderVersion = std::array<uint32_t, 3>;

  // Returns null when the context is null, when it has no application, or when the table cannot be
  // loaded.
  static std::unique_ptr<ApplicationWrapper> Create(FlutterOstrelPluginContext* context);

  ApplicationWrapper(const ApplicationWrapper&) = delete;
  ApplicationWrapper& operator=(const ApplicationWrapper&) = delete;

  // The versions, most significant number first as the embedder fills them. All numbers are 0 when
  // the embedder does not offer the operation or fails. A number that an older embedder does not
  // know is 0.
  OSVersion GetOSVersion() const;
  EmbedderVersion GetEmbedderVersion() const;

  // Runs the task once, later, on the embedder's thread. The task is dropped uncalled when the
  // embedder does not offer the operation or ends first. An empty task does nothing. The embedder
  // defines the meaning of `value`.
  void EnqueueTask(std::function<void()> task, uint32_t value) const;

  // The dispatcher's operation: the same as EnqueueTask, with a copy of the task.
  void Invoke(const std::function<void()>& task, uint32_t value) override;

  // Asks the embedder to end the application with this exit code.
  void Exit(int code);

  // Returns whether the application was given the permission. False, and an error line, when the
  // embedder does not offer the operation and when the name is empty. A Permission that is no
  // enumerator has the empty name.
  bool HasPermission(std::string_view permission) const;
  bool HasPermission(Permission permission) const;

  // Opens the main window. The embedder receives the two texts and the payload (null: none). The
  // callback (empty: none) is called at most once, on the embedder's thread, with the window's
  // answer. An answer that cannot be decoded is the null value and an error line.
  //
  // Returns false when the window cannot be opened, and logs when the embedder does not offer the
  // operation. A payload that holds a custom value ends the process.
  bool CreateMainWindow(const std::string& first_text, const std::string& second_text,
                        const EncodableValue* payload,
                        const std::function<void(const EncodableValue&, std::string)>& callback);

  // The embedder's text or directory of a kind, up to its first NUL. Empty when the embedder has
  // none, when it is larger than 16 MiB, and when its size changes between the two queries.
  std::string GetApplicationInfo(InfoType type) const;
  std::filesystem::path GetPath(DirectoryType type) const;

  // With an empty name: the directory of the application's libraries. Otherwise: the path of the
  // library with that name in the directory ("foo": DIRECTORY/libfoo.so). The library need not
  // exist. Without a directory the path is just "libfoo.so".
  std::filesystem::path GetLibraryPath(std::string_view name) const;

  // Returns copies of the Dart entry point's arguments.
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
