// A complete plug-in: it prints the SHA-256 digests of files, which the task "digest" makes, and
// opens a URI. options.cpp has the command line and the exit codes, digest_client.h the messages;
// examples/digest_server_plugin is the task.
//
// Run it headless: tavo-embed libdigest_plugin.so --libs-path DIR -- DIRECTORY
#include <cw/plugin_registrar.h>
#include <kit/qt/qt_clock.h>
#include <platform/flutter_ostrel/flutter_ostrel.h>
#include <wrapper/manager_wrapper.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "digest_client.h"
#include "file_list.h"
#include "options.h"
#include "progress.h"

namespace {

using Clock = std::chrono::steady_clock;

enum ExitCode { kOk = 0, kSomeFailed = 1, kCannotRun = 2 };

// The entry point's arguments without the directory of the libraries, which comes first.
std::vector<std::string> GetCommandLine(const cw::ApplicationWrapper& application) {
  auto arguments = application.GetDartEntryPointArgs();
  if (arguments.size() >= 2 && arguments[0] == "--libs-path") {
    arguments.erase(arguments.begin(), arguments.begin() + 2);
  }
  return arguments;
}

// Like sha256sum, escapes a name with a backslash or a line break.
std::string EscapedName(const std::string& name) {
  std::string escaped;
  for (const char character : name) {
    if (character == '\\') {
      escaped += "\\\\";
    } else if (character == '\n') {
      escaped += "\\n";
    } else if (character == '\r') {
      escaped += "\\r";
    } else {
      escaped += character;
    }
  }
  return escaped;
}

class DigestPlugin final : public cw::Plugin,
                           public digest::IDigestListener,
                           public std::enable_shared_from_this<DigestPlugin> {
 public:
  explicit DigestPlugin(cw::PluginRegistrar* registrar)
      : application_(registrar->GetApplication()), registrar_(registrar) {}

  void Begin() {
    try {
      options_ = digest::ParseOptions(GetCommandLine(*application_));
    } catch (const std::exception& error) {
      Complain(std::string(error.what()) + " (--help tells more)");
      return Leave(kCannotRun);
    }
    if (!options_.help.empty()) {
      std::fputs(options_.help.c_str(), stdout);
      return Leave(kOk);
    }
    if (registrar_->GetLibraryPath().empty()) {
      Complain("where is libtavo.so? --libs-path DIR tells it");
      return Leave(kCannotRun);
    }
    begin_ = Clock::now();
    Start(digest::ListFiles(options_.paths, options_.skipped));
  }

 private:
  // The engine is about to end.
  void Release() override {
    registrar_ = nullptr;
    intents_.reset();
    caller_.reset();
    clock_.reset();
    progress_.reset();
    manager_.reset();
  }

  void Start(digest::FileList list) {
    manager_ = tavo::ManagerWrapper::Create(registrar_);
    auto client = manager_ ? manager_->CreateIpcClient("digest") : nullptr;
    if (!client) {
      Complain("libtavo.so cannot be used: is --libs-path its directory?");
      return Leave(kCannotRun);
    }
    for (const std::string& failure : list.failures) OnSomeFailed(failure);
    for (const std::string& path : list.unmatched) {
      Complain("--skip " + EscapedName(path) + ": there is nothing to be skipped");
    }
    file_count_ = list.files.size();
    int64_t bytes = 0;
    for (const digest::File& file : list.files) bytes += file.size;
    progress_.emplace(file_count_, bytes);
    clock_ = std::make_shared<tavo::kit::QtClock>();
    caller_ = digest::AskForDigests(std::move(client), clock_, std::move(list.files),
                                    options_.timeout, *this);
  }

  // ---- The conversation ----

  void OnAnswer(const digest::File& file,
                const tavo::kit::Result<digest::Digest>& answer) override {
    const std::string name = EscapedName(file.path);
    if (!answer) {
      ++failed_file_count_;
      return OnSomeFailed(name + ": " + answer.GetFailure().error.message);
    }
    byte_count_ += answer->size;
    progress_->Hide();
    std::printf("%s%s  %s\n", name == file.path ? "" : "\\", answer->sha256.c_str(), name.c_str());
  }

  void OnPart(const digest::File& file, int64_t done) override {
    progress_->ShowFile(EscapedName(file.path), done, file.size);
  }

  void OnProgress(size_t files_done, int64_t bytes_done) override {
    progress_->Show(files_done, bytes_done);
  }

  // Not at once: this is called by the caller, which ends here.
  void OnEnd(const std::string& failure) override {
    application_->EnqueueTask(
        [weak = weak_from_this(), failure] {
          const auto self = weak.lock();
          if (self && self->registrar_) self->Finish(failure);
        },
        0);
  }

  void Finish(const std::string& failure) {
    progress_->Hide();
    caller_.reset();
    if (!failure.empty()) {
      Complain(failure);
      return Leave(kCannotRun);
    }
    if (options_.uri.empty()) return Summarize();
    OpenUri();
  }

  // ---- The URI ----

  // A refused request is destroyed with its callback, which the token shows.
  void OpenUri() {
    opening_ = clock_->After(options_.timeout, [this] { OnOpened(false); });
    intents_ = manager_->GetIntentManager();
    auto token = std::make_shared<char>();
    const std::weak_ptr<char> waiting = token;
    if (intents_) {
      intents_->OpenUri(options_.uri,
                        [weak = weak_from_this(), token = std::move(token)](bool success) {
                          const auto self = weak.lock();
                          if (self && self->registrar_) self->OnOpened(success);
                        });
    } else {
      token.reset();
    }
    if (waiting.expired()) OnOpened(false);
  }

  // The first outcome counts: an answer may come after the timeout.
  void OnOpened(bool success) {
    if (std::exchange(has_opened_, true)) return;
    clock_->Cancel(opening_);
    if (success) {
      Complain("opened " + options_.uri);
    } else {
      OnSomeFailed(options_.uri + " could not be opened");
    }
    Summarize();
  }

  // ---- The end ----

  void Summarize() {
    const std::chrono::duration<double> seconds = Clock::now() - begin_;
    char time[32];
    std::snprintf(time, sizeof time, "%.2f", seconds.count());
    const std::string failed =
        failed_file_count_ > 0 ? " (" + std::to_string(failed_file_count_) + " failed)" : "";
    Complain(digest::FormatCount(file_count_, "file") + failed + ", " +
             digest::FormatSize(byte_count_) + ", " +
             digest::FormatCount(file_count_ + 1, "request") + ", " + time + " s");
    Leave(has_some_failed_ ? kSomeFailed : kOk);
  }

  void OnSomeFailed(const std::string& sentence) {
    has_some_failed_ = true;
    Complain(sentence);
  }

  void Complain(const std::string& sentence) {
    if (progress_) progress_->Hide();
    std::fflush(stdout);  // Keeps the lines in order when both are one terminal.
    std::fprintf(stderr, "digest_plugin: %s\n", sentence.c_str());
  }

  void Leave(int exit_code) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
      std::perror("digest_plugin: standard output");
      exit_code = kCannotRun;
    }
    application_->Exit(exit_code);
  }

  const std::shared_ptr<cw::ApplicationWrapper> application_;
  cw::PluginRegistrar* registrar_;  // Owns this object; null after its release.
  digest::Options options_;
  Clock::time_point begin_;
  std::unique_ptr<tavo::ManagerWrapper> manager_;
  std::unique_ptr<tavo::IntentManager> intents_;
  std::optional<digest::Progress> progress_;
  std::shared_ptr<tavo::kit::IClock> clock_;
  std::shared_ptr<tavo::kit::Caller> caller_;
  uint64_t opening_ = 0;  // The timer for the URI: the only sign that nobody answers.

  size_t file_count_ = 0;
  size_t failed_file_count_ = 0;
  int64_t byte_count_ = 0;
  bool has_some_failed_ = false;  // Files, directories, the URI.
  bool has_opened_ = false;       // Or has failed.
};

}  // namespace

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  if (!registrar || !registrar->GetApplication()) return 0;
  const auto plugin = std::make_shared<DigestPlugin>(registrar);
  registrar->AddPlugin(plugin);
  const std::weak_ptr<DigestPlugin> weak = plugin;
  registrar->GetApplication()->EnqueueTask(
      [weak] {
        if (const auto held = weak.lock()) held->Begin();
      },
      0);
  return 1;
}
