// tavo: what developers of plug-ins do on the command line, a subcommand each.

#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include "desk/common/standard_descriptors.h"
#include "desk/embedder/embed.h"
#include "src/tavo_version.h"
#include "tools/printable.h"
#include "tools/tavo_commands.h"

namespace {

int Report(const std::string& command, const char* text, int exit_code) {
  if (*text != '\0') std::cerr << command << ": " << tools::Printable(text) << '\n';
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
  desk::CommandLine program("tavo", "Tools for developers of plug-ins.",
                            "tavo COMMAND --help tells more of a command.", "tavo " TAVO_VERSION);
  tools::AddCall(program);
  tools::AddNotify(program);
  tools::AddListen(program);
  tools::AddIntent(program);
  tools::AddOpen(program);
  tools::AddTasks(program);
  tools::AddCheck(program);
  tools::AddMonitor(program);
  tools::AddDiagram(program);
  tools::AddTop(program);
  tools::AddProxy(program);
  tools::AddRun(program);
  tools::AddReplay(program);
  tools::AddMock(program);
  tools::AddNew(program);
  tools::AddBind(program);
  tools::AddDecode(program);
  tools::AddEmbed(program);
  tools::AddEncode(program);
  tools::AddGenerate(program);
  try {
    std::cout << program.Parse({argv + std::min(argc, 1), argv + argc});
    return 0;
  } catch (const desk::UsageError& error) {
    Report(program.GetCommandName(), error.what(), tools::kWrongUsage);
    std::cerr << "Run with --help for more information.\n";
    return tools::kWrongUsage;
  } catch (const tools::ErrorAnswer& error) {
    std::cerr << error.what() << '\n';
    return error.GetExitCode();
  } catch (const tools::CommandError& error) {
    return Report(program.GetCommandName(), error.what(), error.GetExitCode());
  } catch (const std::exception& error) {
    return Report(program.GetCommandName(), error.what(), tools::kFailed);
  }
}
