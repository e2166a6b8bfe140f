#include "host/cli/command_options.h"

#include <fmt/core.h>

#include <algorithm>

#include "automation/text.h"
#include "inventory/names.h"
#include "os/paths.h"

namespace host {
namespace {

constexpr double kMaxSeconds = 1e6;

bool isUtf8(const std::string& text) {
  return automation::toUtf8(automation::fromUtf8(text)) == text;
}

}  // namespace

std::string DatabaseArguments::name() const {
  if (!argument.empty() && !database.empty())
    throw UsageError(fmt::format("'{}' and --database exclude each other", argument));
  if (!argument.empty()) return databaseName("DATABASE", argument);
  if (database.empty()) throw UsageError("--database is required");
  return databaseName("--database", database);
}

void DatabaseArguments::takeFrom(std::vector<std::string>& arguments) {
  const auto found = std::ranges::find_if(arguments, [](const std::string& each) {
    std::error_code error;
    return inventory::isOnServer(each) || std::filesystem::is_regular_file(each, error);
  });
  if (!database.empty() || found == arguments.end()) return;
  argument = *found;
  arguments.erase(found);
}

inventory::Access DatabaseArguments::access() const {
  if (!isUtf8(schema)) throw UsageError("--schema: the name is not UTF-8");
  const auto milliseconds = [](const char* option, double seconds) {
    if (!(seconds >= 0)) throw UsageError(std::string(option) + ": not a number of seconds");
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
  };
  return {milliseconds("--wait", wait), milliseconds("--server-timeout", serverTimeout), force, schema};
}

void addDatabase(Command& command, DatabaseArguments& raw) {
  command.option("-d,--database", raw.database, "DATABASE", "Database: a file or a server's address");
  addSchema(command, raw);
  addWait(command, raw);
}

void addDatabaseOrArgument(Command& command, DatabaseArguments& raw) {
  command.argument("DATABASE", raw.argument, "Database, in place of --database", Presence::kOptional);
  addDatabase(command, raw);
}

void addSchema(Command& command, DatabaseArguments& raw) {
  command.option("--schema", raw.schema, "NAME", "Schema of the tables on a server (iis_inventory)");
}

void addWait(Command& command, DatabaseArguments& raw) {
  command.number("--wait", raw.wait, 0.0, kMaxSeconds, "SECONDS", "Seconds to wait for a lock (default: 5)");
  command.number("--server-timeout", raw.serverTimeout, 0.001, kMaxSeconds, "SECONDS",
                 "Seconds a server may be silent (default: 60)");
}

void addForce(Command& command, DatabaseArguments& raw) {
  command.flag("--force", raw.force, "Allow other tables in the database");
}

void addAt(Command& command, std::string& at) {
  command.option("--at", at, "TIME", "State at this time, in UTC");
}

std::string timeOf(const char* option, const std::string& text) {
  if (text.empty()) return text;
  try {
    return inventory::momentOf(text);
  } catch (const inventory::Error& error) {
    throw UsageError(std::string(option) + ": " + error.what());
  }
}

void addMaxSize(Command& command, std::uint64_t& size) {
  constexpr std::uint64_t kUsual = 256ULL << 20;
  size = kUsual;
  command.size("--max-size", size, "Largest in an archive or pipe (default: 256MiB)");
}

void addFormat(Command& command, std::string& format) {
  format = "table";
  command.choice("-f,--format", format, {"table", "csv", "json"}, "FORMAT",
                 "table, csv or json (default: table)");
}

Format formatOf(const std::string& format) {
  if (inventory::sameName(format, "csv")) return Format::kCsv;
  if (inventory::sameName(format, "json")) return Format::kJson;
  if (inventory::sameName(format, "xlsx")) return Format::kXlsx;
  return Format::kTable;
}

void addExcel(Command& command, bool& forExcel) {
  command.flag("--excel", forExcel, "csv for Excel: byte order mark, no formulas");
}

void requireCsv(bool forExcel, bool isCsv) {
  if (forExcel && !isCsv) throw UsageError("--excel is for csv (xlsx needs no such option)");
}

std::string databaseName(const std::string& option, const std::string& database) {
  if (inventory::isOnServer(database)) {
    if (!isUtf8(database)) throw UsageError(option + ": not UTF-8");
    static_cast<void>(inventory::shownName(database));
    return database;
  }
  const std::filesystem::path path = wholePath(option, database), directory = path.parent_path();
  std::error_code error;
  if (!std::filesystem::exists(directory, error) && !error)
    throw UsageError(
        fmt::format("{} '{}': there is no directory '{}'", option, database, directory.string()));
  return path.string();
}

std::filesystem::path wholePath(const std::string& option, const std::string& path) {
  if (path.empty()) throw UsageError(option + ": the path is empty");
  if (!isUtf8(path)) throw UsageError(option + " '" + path + "': the path is not UTF-8");
  return os::absolutePath(path);
}

std::filesystem::path fileToWrite(const std::string& option, const std::string& name,
                                  const std::string& database) {
  const std::filesystem::path path = wholePath(option, name);
  std::error_code error;
  if (!inventory::isOnServer(database) && std::filesystem::equivalent(path, database, error))
    throw UsageError(option + " '" + name + "': it is the database");
  return path;
}

void refuseEmpty(const char* option, const std::vector<std::string>& values) {
  for (const std::string& value : values) {
    if (value.empty()) throw UsageError(std::string(option) + ": the value is empty");
  }
}

std::vector<std::string> commaSeparated(const std::vector<std::string>& lists) {
  constexpr const char* kBlanks = " \t";
  std::vector<std::string> all;
  for (const std::string& list : lists) {
    for (std::size_t start = 0; start <= list.size();) {
      const std::size_t end = std::min(list.find(',', start), list.size());
      const std::size_t first = std::min(list.find_first_not_of(kBlanks, start), end);
      if (first < end) all.push_back(list.substr(first, list.find_last_not_of(kBlanks, end - 1) + 1 - first));
      start = end + 1;
    }
  }
  return all;
}

}  // namespace host
