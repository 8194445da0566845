// tavo mock: a task without code, which answers as a description tells.

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "kit/responder.h"
#include "tools/desktop_entry.h"
#include "tools/mock_description.h"
#include "tools/printable.h"
#include "tools/session.h"
#include "tools/task_server.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

using cw::EncodableList;
using cw::EncodableValue;
using flrpc::IReply;

constexpr char kAbout[] = "Plays a task that answers as a description in JSON tells";
constexpr char kFooter[] =
    "A task is started by another program, and so is this one: --install writes the desktop entry\n"
    "DIR/NAME.desktop, where NAME is that of FILE without .json.\n\n"
    "Example:\n"
    "  echo '{\"echo\": {\"result\": \"$params\"}}' >notes.json\n"
    "  tavo mock --install notes.json apps\n"
    "  TAVO_DESK_PATH=apps tavo call notes echo 7\n\n"
    "Ends with its starter; with 1 when the entry cannot be written; 2 for a wrong command line "
    "or\n"
    "description, and when nobody has started it as a task.";

struct Options {
  std::string file;
  std::string directory;
  std::string libraries;  // What a starter says; the tool has its own.
  bool installs = false;
};

class Mock {
 public:
  Mock(Session& session, MockDescription description)
      : description_(std::move(description)), task_(session) {}

  void Run() {
    for (const auto& named : description_.methods) Offer(named.first, named.second);
    task_.Get().OnConnected([this](const auto&) {
      for (const auto& notification : description_.schedule)
        Send(notification, notification.params);
    });
    task_.Serve();
  }

 private:
  void Offer(const std::string& name, const MockMethod& method) {
    task_.Get().OnRequest(
        name, [this, &method](auto&, const auto& params, std::unique_ptr<IReply>&& reply) {
          Answer(method, params, std::shared_ptr<IReply>(std::move(reply)));
        });
    task_.Get().OnNotify(name, [this, &method](const auto& notification) {
      try {
        NotifyAll(method, FillInAll(method, {}, notification.params));
      } catch (const std::runtime_error& error) {
        Complain(notification.method, error.what());
      }
    });
  }

  void Answer(const MockMethod& method, const EncodableValue& params,
              const std::shared_ptr<IReply>& reply) {
    EncodableList contents;
    try {
      contents = FillInAll(method, method.error ? method.error->data : TakeResult(method), params);
    } catch (const std::runtime_error& error) {
      return reply->SendError(tavo::kit::kInvalidParams, error.what(), {});
    }
    const auto send = [this, &method, reply](EncodableValue filled) {
      auto& parts = *filled.GetIf<EncodableList>();
      if (method.error) {
        reply->SendError(method.error->code, method.error->message, std::move(parts[0]));
      } else {
        reply->SendResult(std::move(parts[0]));
      }
      NotifyAll(method, std::move(parts));
    };
    if (task_.SendLater(method.after, std::move(contents), send)) return;
    reply->SendError(flrpc::kInternalError, "too many answers wait", {});
  }

  const EncodableValue& TakeResult(const MockMethod& method) {
    const size_t last = method.results.size() - 1;
    return method.results[std::min(calls_[&method]++, last)];
  }

  // The content of the answer, and the parameters of the notifications behind it.
  static EncodableList FillInAll(const MockMethod& method, const EncodableValue& content,
                                 const EncodableValue& params) {
    EncodableList filled;
    filled.push_back(FillIn(content, params));
    for (const MockNotification& notification : method.notify) {
      filled.push_back(FillIn(notification.params, params));
    }
    return filled;
  }

  void NotifyAll(const MockMethod& method, EncodableList contents) {
    for (size_t i = 0; i < method.notify.size(); ++i) {
      Send(method.notify[i], std::move(contents[i + 1]));
    }
  }

  void Send(const MockNotification& notification, EncodableValue params) {
    SendAfter(notification.after, notification, std::move(params));
  }

  // Only the first time of a repeated one may find no room: later it takes the place that it has
  // just left.
  void SendAfter(MockTime delay, const MockNotification& notification, EncodableValue params) {
    const auto send = [this, &notification](EncodableValue filled) {
      task_.Get().SendNotify(notification.method, filled);
      if (notification.every) SendAfter(*notification.every, notification, std::move(filled));
    };
    if (!task_.SendLater(delay, std::move(params), send)) {
      Complain(notification.method, "too many wait");
    }
  }

  static void Complain(const std::string& method, const std::string& cause) {
    Session::PrintError("tavo mock: no notification \"" + Printable(method) + "\": " + cause);
  }

  const MockDescription description_;
  std::map<const MockMethod*, size_t> calls_;
  TaskServer task_;  // Its end drops the functions that refer to the others.
};

void Install(const Options& options) {
  const std::filesystem::path path(options.file);
  const auto name = path.extension() == ".json" ? path.stem() : path.filename();
  const std::string entry =
      WriteDesktopEntry(options.directory, name.string(), {"mock", MakeAbsolute(options.file)});
  std::cout << entry << std::endl;
}

void Run(const Options& options) {
  if (options.installs != !options.directory.empty()) {
    throw CommandError(kWrongUsage, "--install and DIR need each other");
  }
  if (!options.installs) ExpectStarter();
  MockDescription description = ReadMockDescription(options.file);
  if (options.installs) return Install(options);
  RunSession([&](Session& session) { Mock(session, std::move(description)).Run(); });
}

}  // namespace

void AddMock(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command mock = program.AddCommand("mock", kAbout, kFooter);
  mock.AddArgument("FILE", &options->file, "The description of the task").Require();
  mock.AddArgument("DIR", &options->directory, "Where --install writes");
  mock.AddFlag("--install", &options->installs,
               "Write a desktop entry, by which the task is found");
  mock.AddOption("--libs-path", &options->libraries, "DIR",
                 "What a starter adds; it has no effect");
  mock.OnRun([options] { Run(*options); });
}

}  // namespace tools
