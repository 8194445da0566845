// The task "words": counts the lines and words of files. words_messages.h has the messages.
#include <cw/plugin_registrar.h>
#include <kit/responder.h>
#include <platform/flutter_ostrel/flutter_ostrel.h>
#include <wrapper/manager_wrapper.h>

#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>

#include "words_messages.h"

namespace {

using words_messages::FileName;
using words_messages::Words;
using Request = tavo::kit::Request<Words>;

// A file that is being counted.
struct Count {
  std::shared_ptr<cw::ApplicationWrapper> application;
  Request request;
  std::ifstream file;
  double size = 1;
  double done = 0;
  bool is_in_word = false;
  Words result = {};
};

void Add(std::string_view text, Count* count) {
  for (const char character : text) {
    const bool is_space = std::isspace(static_cast<unsigned char>(character)) != 0;
    count->result.words += !is_space && !count->is_in_word;
    count->result.lines += character == '\n';
    count->is_in_word = !is_space;
  }
  count->done += static_cast<double>(text.size());
}

// Counts one block, then lets the event loop do other work before the next one.
void CountBlock(const std::shared_ptr<Count>& count) {
  if (count->request.IsCancelled()) return;
  std::array<char, 65536> block;
  count->file.read(block.data(), block.size());
  const auto size = static_cast<size_t>(count->file.gcount());
  if (size == 0) return count->request.Finish(count->result);
  Add({block.data(), size}, count.get());
  count->request.Progress(count->done / count->size);
  count->application->EnqueueTask([count] { CountBlock(count); }, 0);
}

class WordsTask final : public cw::Plugin {
 public:
  // False, with an error line of the library, when there is no server.
  bool Begin(cw::PluginRegistrar* registrar) {
    manager_ = tavo::ManagerWrapper::Create(registrar);
    auto server = manager_ ? manager_->CreateRpcServer() : nullptr;
    if (!server) return false;
    responder_ = tavo::kit::Responder::Create(server);
    responder_->Handle("count", [application = registrar->GetApplication()](
                                    const FileName& name, const Request& request) {
      std::error_code error;
      const auto size = std::filesystem::file_size(name.path, error);
      auto count = std::make_shared<Count>(
          Count{application, request, std::ifstream(name.path, std::ios::binary)});
      if (error || !count->file) {
        return request.Fail(words_messages::kCannotBeRead, name.path + " cannot be read");
      }
      count->size = static_cast<double>(size);
      CountBlock(count);
    });
    responder_->Run();
    return true;
  }

 private:
  // The engine is about to end.
  void Release() override {
    responder_.reset();
    manager_.reset();
  }

  std::unique_ptr<tavo::ManagerWrapper> manager_;
  std::shared_ptr<tavo::kit::Responder> responder_;
};

}  // namespace

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  if (!registrar || !registrar->GetApplication()) return 0;
  const auto plugin = std::make_shared<WordsTask>();
  if (!plugin->Begin(registrar)) return 0;
  registrar->AddPlugin(plugin);
  return 1;
}
