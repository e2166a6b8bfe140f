#include "host/commands.h"

#include <CLI/CLI.hpp>

#include "host/check.h"

namespace host {
namespace {

constexpr const char* kCheckFooter =
    "Exit status: 0 nothing odd, 1 odd places, 2 something that is no metabase.\n"
    "\n"
    "Example:\n"
    "  iisinventory check WEB01/MetaBase.xml";

}  // namespace

void addCheck(CLI::App& program, Work& work) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App& command = *program.add_subcommand("check", "Say what is odd about metabase files");
  command.add_option("METABASE", options->metabases, "Metabase file, folder or archive; - for stdin")
      ->required()
      ->type_name("");
  addMaxSize(command, options->maxSize);
  command.footer(kCheckFooter);
  command.callback(
      [options, &work] { work = [options](Output& output) { return check(*options, output); }; });
}

}  // namespace host
