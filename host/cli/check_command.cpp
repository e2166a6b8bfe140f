#include "host/cli/command_options.h"

#include "host/collect/check.h"

namespace host {
namespace {

constexpr const char* kCheckFooter =
    "Collects the files without a database and shows the problems that collect\n"
    "would record.\n"
    "\n"
    "Exit status: 0 no problems, 1 problems, 2 a file cannot be collected.\n"
    "\n"
    "Examples:\n"
    "  iisinventory check WEB01/MetaBase.xml\n"
    "  iisinventory check backups/ --format json";

}  // namespace

void addCheck(Program& program, CommandAction& action) {
  const auto options = std::make_shared<CheckOptions>();
  const auto format = std::make_shared<std::string>("table");
  Command command = program.add("check", "Check metabase files");
  command.argument("METABASE", options->metabases, "Metabase file, folder or archive; - for stdin",
                   Presence::kRequired);
  addMaxSize(command, options->maxSize);
  command.choice("-f,--format", *format, {"table", "json"}, "FORMAT", "table or json (default: table)");
  command.footer(kCheckFooter);
  command.onParsed([options, format, &action] {
    options->json = *format == "json";
    action = [options](Output& output) { return check(*options, output); };
  });
}

}  // namespace host
