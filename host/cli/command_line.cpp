#include "host/cli/command_line.h"

#include <CLI/CLI.hpp>
#include <string_view>

#include "host/cli/command_options.h"
#include "host/console/color.h"
#include "host/console/suggestion.h"
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

constexpr void (*kCommands[])(CLI::App&, CommandAction&) = {
    addCollect, addCheck,  addServers, addShow, addReport, addFindings,     addRules,
    addDiff,    addRename, addRemove,  addCopy, addVerify, addSchemaCommand};

class Parser {
 public:
  Parser() {
    program_.set_version_flag("--version", "iisinventory " IISINVENTORY_VERSION);
    program_.require_subcommand(1);
    program_.add_option("--color", color_, "Colour for problems and findings (default: auto)")
        ->type_name("auto|always|never")
        ->check(CLI::IsMember({"auto", "always", "never"}, CLI::ignore_case).description(""));
    program_.footer(kProgramFooter);
    for (const auto add : kCommands) add(program_, action_);
    for (CLI::App* const command : program_.get_subcommands({})) command->fallthrough();
  }

  CommandAction parse(int argumentCount, const char* const* arguments) {
    try {
      program_.parse(argumentCount, arguments);
    } catch (const CLI::CallForHelp&) {
      const CLI::App& asked = command();
      const std::string text =
          &asked == &program_ ? asked.help() : asked.help(asked.get_parent()->get_name());
      return printing(text);
    } catch (const CLI::CallForVersion&) {
      return printing(program_.version() + "\n");
    } catch (const CLI::ExtrasError& error) {
      failOn(error, program_.remaining(true));
    } catch (const CLI::Error& error) {
      if (&command() == &program_ && arguments[1][0] != '-') failOnCommand(arguments[1]);
      if (&command() == &program_) throw UsageError("no command given" + seeHelp());
      throw UsageError(error.what() + seeHelp());
    } catch (const UsageError& error) {
      const std::string message = error.what();
      throw UsageError(message.ends_with(')') ? message : message + seeHelp());
    }
    useColor(inventory::sameName(color_, "always")  ? ColorUse::kAlways
             : inventory::sameName(color_, "never") ? ColorUse::kNever
                                                    : ColorUse::kAuto);
    return std::move(action_);
  }

  std::string help() const { return program_.help(); }

 private:
  // The command in use, or else the program.
  const CLI::App& command() const {
    const std::vector<CLI::App*> asked = program_.get_subcommands();
    return asked.empty() ? program_ : *asked.back();
  }

  std::string seeHelp() const {
    const std::string name = &command() == &program_ ? "" : " " + command().get_name();
    return " (see 'iisinventory" + name + " --help')";
  }

  static CommandAction printing(const std::string& text) {
    return [text](Output& output) {
      output.write(text);
      output.flush();
      return 0;
    };
  }

  [[noreturn]] void failOnCommand(const std::string& name) const {
    std::vector<std::string> names;
    for (const CLI::App* each : program_.get_subcommands({})) names.push_back(each->get_name());
    std::string all;
    for (const std::string& each : names) all += (all.empty() ? " " : ", ") + each;
    const std::string suggestion = didYouMean(name, names);
    throw UsageError("no command '" + name + "'" + (suggestion.empty() ? "; commands:" + all : suggestion));
  }

  [[noreturn]] void failOn(const CLI::Error& error, const std::vector<std::string>& extras) const {
    if (extras.empty() || !extras.front().starts_with('-')) throw UsageError(error.what() + seeHelp());
    const std::string option = extras.front().substr(0, extras.front().find('='));
    std::vector<std::string> names;
    for (const CLI::Option* each : command().get_options()) {
      for (const std::string& name : each->get_lnames()) names.push_back("--" + name);
    }
    const std::string suggestion = didYouMean(option, names);
    throw UsageError("no option '" + option + "'" + (suggestion.empty() ? seeHelp() : suggestion));
  }

  CLI::App program_{"Inventories IIS 6 servers: from their MetaBase.xml files to one database.",
                    "iisinventory"};
  std::string color_ = "auto";
  CommandAction action_;
};

}  // namespace

CommandAction parseCommandLine(int argumentCount, const char* const* arguments) {
  return Parser().parse(argumentCount, arguments);
}

std::string programHelp() {
  return Parser().help();
}

}  // namespace host
