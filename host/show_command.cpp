#include <CLI/CLI.hpp>

#include "host/commands.h"
#include "host/show.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "A tab's name stands for its tables: General for tblGeneral. Without a table,\n"
    "the tables and their row counts. A condition is COLUMN=TEXT, COLUMN!=TEXT or\n"
    "COLUMN~TEXT (contains), without regard to case; all of them must hold.\n"
    "\n"
    "What a problem says isn't known shows as 'not known'; csv and json keep the\n"
    "value and name such columns in a last one, 'Not known'.\n"
    "\n"
    "Examples:\n"
    "  iisinventory show -d inventory.db\n"
    "  iisinventory show Health -d inventory.db --server WEB01 --blocks\n"
    "  iisinventory show \"Home Directory\" -d inventory.db --where Write=Yes\n"
    "  iisinventory show tblvirtualDirectory -d inventory.db --format json";

struct Raw {
  RawDatabase database;
  std::vector<std::string> conditions;
  std::vector<std::string> columns;
  std::string format;
  ShowOptions options;
};

Condition conditionOf(const std::string& text) {
  const std::size_t at = text.find_first_of("=~");
  if (at == text.npos || at == 0) {
    throw UsageError("--where '" + text + "': it is none of COLUMN=TEXT, COLUMN!=TEXT and COLUMN~TEXT");
  }
  if (text[at] == '~') return {text.substr(0, at), Condition::Kind::kContains, text.substr(at + 1)};
  if (at > 1 && text[at - 1] == '!')
    return {text.substr(0, at - 1), Condition::Kind::kIsNot, text.substr(at + 1)};
  return {text.substr(0, at), Condition::Kind::kIs, text.substr(at + 1)};
}

// No column's name has a comma.
std::vector<std::string> pieces(const std::vector<std::string>& lists) {
  std::vector<std::string> all;
  for (const std::string& list : lists) {
    for (std::string& piece : CLI::detail::split(list, ',')) all.push_back(CLI::detail::trim(piece));
  }
  return all;
}

ShowOptions optionsOf(const Raw& raw) {
  refuseEmpty("--server", raw.options.servers);
  ShowOptions options = raw.options;
  options.database = raw.database.name();
  options.access = raw.database.access();
  options.format = formatOf(raw.format);
  options.columns = pieces(raw.columns);
  for (const std::string& text : raw.conditions) options.conditions.push_back(conditionOf(text));
  if (options.hasMark && options.format != Format::kCsv) throw UsageError("--bom is for --format csv");
  if (options.isReversed && options.sort.empty()) throw UsageError("--reverse needs --sort");
  if (options.isWide && options.inBlocks) throw UsageError("--wide and --blocks exclude each other");
  return options;
}

}  // namespace

void addShow(CLI::App& program, Work& work) {
  const auto raw = std::make_shared<Raw>();
  ShowOptions& options = raw->options;
  CLI::App& command = *program.add_subcommand("show", "Show what a database holds");
  command.add_option("TABLE", options.tables, "Tables or tabs to show")->type_name("");
  addDatabase(command, raw->database);
  addList(command, "--server", options.servers, "NAME", "Only this server (repeatable)");
  addList(command, "--columns", raw->columns, "A,B,...", "Only these columns (repeatable)");
  addList(command, "--where", raw->conditions, "CONDITION", "Only such rows (repeatable)");
  command.add_option("--sort", options.sort, "Sort by this column")->type_name("COLUMN");
  command.add_flag("--reverse", options.isReversed, "The last of the order first");
  addFormat(command, raw->format);
  command.add_flag("--wide", options.isWide, "Lines as long as their row, on a terminal");
  command.add_flag("--blocks", options.inBlocks, "Columns below each other");
  command.add_flag("--bom", options.hasMark, "A byte order mark ahead of csv, for Excel");
  command.footer(kFooter);
  command.callback([raw, &work] {
    work = [shown = optionsOf(*raw)](Output& output) {
      show(shown, output);
      return 0;
    };
  });
}

}  // namespace host
