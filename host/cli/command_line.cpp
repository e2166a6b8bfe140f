#include "host/cli/command_line.h"

#include <optional>
#include <utility>

#include "host/cli/command.h"
#include "host/cli/command_options.h"
#include "host/console/color.h"
#include "inventory/names.h"

namespace host {
namespace {

constexpr const char* kProgramFooter =
    "Examples:\n"
    "  iisinventory collect WEB01/MetaBase.xml --database inventory.db\n"
    "  iisinventory show --database inventory.db\n"
    "  iisinventory show tblGeneral --database inventory.db --format csv\n"
    "\n"
    "See 'iisinventory COMMAND --help' for a command.";

constexpr void (*kCommands[])(Program&, CommandAction&) = {
    addCollect, addCheck,  addServers, addShow, addReport, addFindings,     addRules,
    addDiff,    addRename, addRemove,  addCopy, addVerify, addSchemaCommand};

struct CommandLine {
  CommandLine() {
    program.common().choice("--color", color, {"auto", "always", "never"}, "auto|always|never",
                            "Colour for problems and findings (default: auto)");
    for (const auto add : kCommands) add(program, action);
  }

  Program program{"iisinventory", "Inventories IIS 6 servers: from their MetaBase.xml files to one database.",
                  IISINVENTORY_VERSION, kProgramFooter};
  std::string color = "auto";
  CommandAction action;
};

}  // namespace

CommandAction parseCommandLine(int argumentCount, const char* const* arguments) {
  CommandLine line;
  if (const auto text = line.program.parse(argumentCount, arguments)) {
    return [text](Output& output) {
      output.write(*text);
      output.flush();
      return 0;
    };
  }
  useColor(inventory::sameName(line.color, "always")  ? ColorUse::kAlways
           : inventory::sameName(line.color, "never") ? ColorUse::kNever
                                                      : ColorUse::kAuto);
  return std::move(line.action);
}

std::string programHelp() {
  return CommandLine().program.help();
}

}  // namespace host
