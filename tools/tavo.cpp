// tavo: what developers of plug-ins do on the command line, a subcommand each.

#include <exception>
#include <iostream>

#include "desk/common/standard_descriptors.h"
#include "tools/tavo_commands.h"

namespace {

int Report(const CLI::App& app, const char* text, int exit_code) {
  std::cerr << "tavo";
  for (const CLI::App* command : app.get_subcommands()) std::cerr << ' ' << command->get_name();
  std::cerr << ": " << text << '\n';
  return exit_code;
}

}  // namespace

int main(int argc, char** argv) {
  desk::OpenStandardDescriptors();
  CLI::App app("Tools for developers of plug-ins.", "tavo");
  app.require_subcommand(1);
  tools::AddBind(app);
  try {
    app.parse(argc, argv);
    return 0;
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : tools::kWrongUsage;
  } catch (const tools::CommandError& error) {
    return Report(app, error.what(), error.GetExitCode());
  } catch (const std::exception& error) {
    return Report(app, error.what(), tools::kFailed);
  }
}
