#include "host/cli/command_options.h"

#include <CLI/CLI.hpp>

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
  if (database.empty()) throw UsageError("--database is required");
  return databaseName("--database", database);
}

inventory::Access DatabaseArguments::access() const {
  if (!isUtf8(schema)) throw UsageError("--schema: the name is not UTF-8");
  const auto milliseconds = [](const char* option, double seconds) {
    if (!(seconds >= 0)) throw UsageError(std::string(option) + ": not a number of seconds");
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
  };
  return {milliseconds("--wait", wait), milliseconds("--server-timeout", serverTimeout), force, schema};
}

void addDatabase(CLI::App& command, DatabaseArguments& raw) {
  command.add_option("-d,--database", raw.database, "Database: a file or a server's address")
      ->type_name("DATABASE");
  addSchema(command, raw);
  addWait(command, raw);
}

void addSchema(CLI::App& command, DatabaseArguments& raw) {
  command.add_option("--schema", raw.schema, "Schema of the tables on a server (iis_inventory)")
      ->type_name("NAME");
}

void addWait(CLI::App& command, DatabaseArguments& raw) {
  command.add_option("--wait", raw.wait, "Seconds to wait for a lock (default: 5)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, kMaxSeconds).description(""));
  command.add_option("--server-timeout", raw.serverTimeout, "Seconds a server may be silent (default: 60)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, kMaxSeconds).description(""));
}

void addForce(CLI::App& command, DatabaseArguments& raw) {
  command.add_flag("--force", raw.force, "Allow other tables in the database");
}

void addAt(CLI::App& command, std::string& at) {
  command.add_option("--at", at, "State at this time, in UTC")->type_name("TIME");
}

std::string timeOf(const char* option, const std::string& text) {
  if (text.empty()) return text;
  try {
    return inventory::momentOf(text);
  } catch (const inventory::Error& error) {
    throw UsageError(std::string(option) + ": " + error.what());
  }
}

void addMaxSize(CLI::App& command, std::uint64_t& size) {
  constexpr std::uint64_t kUsual = 1ULL << 30;
  size = kUsual;
  const CLI::Validator positive(
      [](const std::string& text) {
        return text == "0" || text.starts_with('-') ? "it must be greater than 0" : std::string();
      },
      "");
  command.add_option("--max-size", size, "Largest from an archive or a pipe (default: 1GiB)")
      ->type_name("SIZE")
      ->transform(CLI::AsSizeValue(false).description(""))
      // Checked first: the other validators would read "-1" as a very large number.
      ->transform(positive)
      ->check(positive);
}

void addFormat(CLI::App& command, std::string& format) {
  format = "table";
  command.add_option("-f,--format", format, "table, csv or json (default: table)")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"table", "csv", "json"}, CLI::ignore_case).description(""));
}

Format formatOf(const std::string& format) {
  if (inventory::sameName(format, "csv")) return Format::kCsv;
  if (inventory::sameName(format, "json")) return Format::kJson;
  return Format::kTable;
}

void addList(CLI::App& command, const char* option, std::vector<std::string>& values, const char* type,
             const char* what) {
  command.add_option(option, values, what)
      ->type_name(type)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->allow_extra_args(false);
}

std::string databaseName(const std::string& option, const std::string& database) {
  if (!inventory::isOnServer(database)) return wholePath(option, database).string();
  if (!isUtf8(database)) throw UsageError(option + ": not UTF-8");
  static_cast<void>(inventory::shownName(database));
  return database;
}

std::filesystem::path wholePath(const std::string& option, const std::string& path) {
  if (path.empty()) throw UsageError(option + ": the path is empty");
  if (!isUtf8(path)) throw UsageError(option + " '" + path + "': the path is not UTF-8");
  return os::absolutePath(path);
}

void refuseEmpty(const char* option, const std::vector<std::string>& values) {
  for (const std::string& value : values) {
    if (value.empty()) throw UsageError(std::string(option) + ": the value is empty");
  }
}

}  // namespace host
