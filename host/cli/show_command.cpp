#include <fmt/core.h>

#include "host/cli/command_options.h"
#include "host/query/show.h"
#include "inventory/names.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "TABLE is a table, a view or a tab: General for tblGeneral; see 'iisinventory\n"
    "schema'. Without TABLE, lists the tables and their row counts, and the views;\n"
    "--search then searches all tables, and xlsx has a sheet for each view.\n"
    "\n"
    "CONDITION is COLUMN=TEXT, COLUMN!=TEXT or COLUMN~TEXT (contains), in any case.\n"
    "Of several = and ~ on one column one must be met; all others must be met.\n"
    "TIME is 2026-01-31, 2026-01-31T12:00 or the like.\n"
    "\n"
    "A value that could not be read shows as 'not known'; csv, json and xlsx keep\n"
    "what is stored, and name such columns in a last column, 'Not known'.\n"
    "\n"
    "Examples:\n"
    "  iisinventory show -d inventory.db\n"
    "  iisinventory show Health -d inventory.db --server WEB01 --blocks\n"
    "  iisinventory show \"Home Directory\" -d inventory.db --where Write=Yes\n"
    "  iisinventory show --search IUSR_WEB01 -d inventory.db\n"
    "  iisinventory show tblvirtualDirectory -d inventory.db --format json\n"
    "  iisinventory show ftp_site app_pool -d inventory.db --output inventory.xlsx\n"
    "  iisinventory show ftp_site -d inventory.db --at 2026-01-31";

struct Raw {
  DatabaseArguments database;
  std::vector<std::string> conditions;
  std::vector<std::string> columns;
  std::string format, output;
  ShowOptions options;
};

Condition conditionOf(const std::string& text) {
  const std::size_t at = text.find_first_of("=~");
  if (at == text.npos || at == 0) {
    throw UsageError("--where '" + text + "': not COLUMN=TEXT, COLUMN!=TEXT or COLUMN~TEXT");
  }
  if (text[at] == '~') return {text.substr(0, at), Condition::Kind::kContains, text.substr(at + 1)};
  if (at > 1 && text[at - 1] == '!')
    return {text.substr(0, at - 1), Condition::Kind::kIsNot, text.substr(at + 1)};
  return {text.substr(0, at), Condition::Kind::kIs, text.substr(at + 1)};
}

// Without --format, the extension of the file is the format.
Format chosenFormat(const Raw& raw) {
  if (!raw.format.empty()) return formatOf(raw.format);
  const std::string extension = inventory::folded(std::filesystem::path(raw.output).extension().string());
  if (extension.empty() || extension == ".txt") return Format::kTable;
  for (const char* const known : {".csv", ".json", ".xlsx"}) {
    if (extension == known) return formatOf(extension.substr(1));
  }
  throw UsageError(fmt::format("--output '{}': use .txt, .csv, .json or .xlsx, or --format", raw.output));
}

ShowOptions optionsOf(const Raw& raw) {
  refuseEmpty("--server", raw.options.servers);
  ShowOptions options = raw.options;
  if (raw.database.database.empty() && raw.database.argument.empty() && !options.tables.empty())
    throw UsageError(fmt::format("--database is required: '{}' is no database", options.tables.front()));
  options.database = raw.database.name();
  options.access = raw.database.access();
  options.at = timeOf("--at", raw.options.at);
  if (!raw.output.empty()) options.output = fileToWrite("--output", raw.output, options.database);
  options.format = chosenFormat(raw);
  if (options.format == Format::kXlsx && raw.output.empty())
    throw UsageError("--format xlsx needs --output FILE");
  refuseEmpty("--columns", raw.columns);
  options.columns = commaSeparated(raw.columns);
  for (const std::string& text : raw.conditions) options.conditions.push_back(conditionOf(text));
  requireCsv(options.forExcel, options.format == Format::kCsv);
  if (options.isReversed && options.sort.empty()) throw UsageError("--reverse needs --sort");
  if (options.isWide && options.vertical) throw UsageError("--wide and --blocks exclude each other");
  return options;
}

}  // namespace

void addShow(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  ShowOptions& options = raw->options;
  Command command = program.add("show", "Show tables and views of a database");
  command.argument("TABLE", options.tables, "Tables, views or tabs to show", Presence::kOptional);
  addDatabase(command, raw->database);
  command.list("--server", options.servers, "NAME", "Only this server, with * and ? (repeatable)");
  addAt(command, options.at);
  command.list("--columns", raw->columns, "A,B,...", "Only these columns (repeatable)");
  command.list("--where", raw->conditions, "CONDITION", "Only rows that meet it (repeatable)");
  command.option("--search", options.search, "TEXT", "Only rows with this text in any column");
  command.option("--sort", options.sort, "COLUMN", "Sort by this column");
  command.flag("--reverse", options.isReversed, "Reverse order");
  command.choice("-f,--format", raw->format, {"table", "csv", "json", "xlsx"}, "FORMAT",
                 "table, csv, json or xlsx (default: table)");
  command.option("-o,--output", raw->output, "FILE", "File to write; its extension is its format");
  command.flag("--wide", options.isWide, "Do not truncate lines on a terminal");
  command.flag("--blocks", options.vertical, "One column per line");
  addExcel(command, options.forExcel);
  command.footer(kFooter);
  command.onParsed([raw, &action] {
    raw->database.takeFrom(raw->options.tables);
    action = [shown = optionsOf(*raw)](Output& output) {
      show(shown, output);
      return 0;
    };
  });
}

}  // namespace host
