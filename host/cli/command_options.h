// The program's commands and the options that they share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/console/listing.h"
#include "host/console/output.h"
#include "host/usage_error.h"
#include "inventory/inventory.h"

namespace CLI {
class App;
}

namespace host {

// A command's action; returns the exit status.
using CommandAction = std::function<int(Output&)>;

// Each adds one command to the program, with its options and its help. If the command is given, parsing sets
// `action` and may throw UsageError.
void addCollect(CLI::App& program, CommandAction& action);
void addCheck(CLI::App& program, CommandAction& action);
void addShow(CLI::App& program, CommandAction& action);
void addDiff(CLI::App& program, CommandAction& action);
void addReport(CLI::App& program, CommandAction& action);
void addFindings(CLI::App& program, CommandAction& action);
void addRules(CLI::App& program, CommandAction& action);
void addServers(CLI::App& program, CommandAction& action);
void addRemove(CLI::App& program, CommandAction& action);
void addRename(CLI::App& program, CommandAction& action);
void addCopy(CLI::App& program, CommandAction& action);
void addVerify(CLI::App& program, CommandAction& action);
void addSchemaCommand(CLI::App& program, CommandAction& action);

// Options that several commands share, with unchecked values.

struct DatabaseArguments {
  std::string database;
  std::string schema = inventory::Access().schema;
  double wait = 5;
  double serverTimeout = 60;
  bool force = false;

  // The database to open: a server's address, or a file's absolute path. Throws UsageError.
  std::string name() const;
  inventory::Access access() const;
};

// --database, --schema, --wait and --server-timeout.
void addDatabase(CLI::App& command, DatabaseArguments& raw);
void addSchema(CLI::App& command, DatabaseArguments& raw);
// --wait and --server-timeout.
void addWait(CLI::App& command, DatabaseArguments& raw);
void addForce(CLI::App& command, DatabaseArguments& raw);

// --at: the collections that were current at a time.
void addAt(CLI::App& command, std::string& at);
// The time in an option, in the inventory's format; empty if the option is. Throws UsageError.
std::string timeOf(const char* option, const std::string& text);

// --max-size, in bytes.
void addMaxSize(CLI::App& command, std::uint64_t& size);

// --format: table, csv or json.
void addFormat(CLI::App& command, std::string& format);
Format formatOf(const std::string& format);

// Adds an option with one value that can be repeated.
void addList(CLI::App& command, const char* option, std::vector<std::string>& values, const char* type,
             const char* what);

// The database to open, from an option or argument. Throws UsageError.
std::string databaseName(const std::string& option, const std::string& database);

// The absolute path. Throws UsageError unless it is UTF-8, since the component uses paths as text.
std::filesystem::path wholePath(const std::string& option, const std::string& path);

void refuseEmpty(const char* option, const std::vector<std::string>& values);

}  // namespace host
