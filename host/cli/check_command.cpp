#include "host/cli/command_options.h"

#include "host/collect/check.h"

namespace host {
namespace {

constexpr const char* kCheckFooter =
    "Exit status: 0 no warnings, 1 warnings, 2 not a metabase.\n"
    "\n"
    "Example:\n"
    "  iisinventory check WEB01/MetaBase.xml";

}  // namespace

void addCheck(Program& program, CommandAction& action) {
  const auto options = std::make_shared<CheckOptions>();
  Command command = program.add("check", "Check metabase files");
  command.argument("METABASE", options->metabases, "Metabase file, folder or archive; - for stdin",
                   Presence::kRequired);
  addMaxSize(command, options->maxSize);
  command.footer(kCheckFooter);
  command.onParsed(
      [options, &action] { action = [options](Output& output) { return check(*options, output); }; });
}

}  // namespace host
