// tavo: what developers of plug-ins do on the command line, a subcommand each.

#include <cstring>
#include <exception>
#include <iostream>
#include <memory>

#include "desk/common/standard_descriptors.h"
#include "desk/embedder/embed.h"
#include "tools/printable.h"
#include "tools/summary.h"
#include "tools/tavo_commands.h"

namespace {

int Report(const CLI::App& app, const char* text, int exit_code) {
  std::cerr << "tavo";
  for (const CLI::App* command : app.get_subcommands()) std::cerr << ' ' << command->get_name();
  std::cerr << ": " << tools::Printable(text) << '\n';
  return exit_code;
}

}  // namespace

int main(int argc, char** argv) {
  desk::OpenStandardDescriptors();
  // The words behind "--" are the plug-in's, also another "--": embed reads its command line
  // itself.
  if (argc > 1 && std::strcmp(argv[1], "embed") == 0) {
    return desk::RunEmbed(argc - 1, argv + 1, "tavo embed");
  }
  CLI::App app("Tools for developers of plug-ins.", "tavo");
  app.footer("tavo COMMAND --help tells more of a command.");
  app.set_version_flag("--version", "tavo " TAVO_VERSION, "Print the version and exit");
  app.require_subcommand(1);
  app.formatter(std::make_shared<tools::SummaryFormatter>());
  tools::AddCall(app);
  tools::AddNotify(app);
  tools::AddListen(app);
  tools::AddIntent(app);
  tools::AddOpen(app);
  tools::AddTasks(app);
  tools::AddMonitor(app);
  tools::AddDiagram(app);
  tools::AddTop(app);
  tools::AddProxy(app);
  tools::AddRun(app);
  tools::AddBind(app);
  tools::AddDecode(app);
  tools::AddEmbed(app);
  tools::AddEncode(app);
  tools::AddGenerate(app);
  try {
    app.parse(argc, argv);
    return 0;
  } catch (const CLI::RuntimeError& error) {
    return error.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : tools::kWrongUsage;
  } catch (const tools::ErrorAnswer& error) {
    std::cerr << error.what() << '\n';
    return error.GetExitCode();
  } catch (const tools::CommandError& error) {
    return Report(app, error.what(), error.GetExitCode());
  } catch (const std::exception& error) {
    return Report(app, error.what(), tools::kFailed);
  }
}
