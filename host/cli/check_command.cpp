#include "host/cli/command_options.h"

#include <CLI/CLI.hpp>

#include "host/collect/check.h"

namespace host {
namespace {

constexpr const char* kCheckFooter =
    "Exit status: 0 no warnings, 1 warnings, 2 not a metabase.\n"
    "\n"
    "Example:\n"
    "  iisinventory check WEB01/MetaBase.xml";

}  // namespace

void addCheck(CLI::App& program, CommandAction& action) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App& command = *program.add_subcommand("check", "Check metabase files");
  command.add_option("METABASE", options->metabases, "Metabase file, folder or archive; - for stdin")
      ->required()
      ->type_name("");
  addMaxSize(command, options->maxSize);
  command.footer(kCheckFooter);
  command.callback(
      [options, &action] { action = [options](Output& output) { return check(*options, output); }; });
}

}  // namespace host
