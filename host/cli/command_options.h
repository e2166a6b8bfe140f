// The program's commands and the options that they share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/cli/command.h"
#include "host/console/listing.h"
#include "host/console/output.h"
#include "host/usage_error.h"
#include "inventory/inventory.h"

namespace host {

// A command's action; returns the exit status.
using CommandAction = std::function<int(Output&)>;

// Each adds one command to the program, with its options and its help. If the command is given, parsing sets
// `action` and may throw UsageError.
void addCollect(Program& program, CommandAction& action);
void addCheck(Program& program, CommandAction& action);
void addShow(Program& program, CommandAction& action);
void addDiff(Program& program, CommandAction& action);
void addRedact(Program& program, CommandAction& action);
void addReport(Program& program, CommandAction& action);
void addFindings(Program& program, CommandAction& action);
void addRules(Program& program, CommandAction& action);
void addServers(Program& program, CommandAction& action);
void addRemove(Program& program, CommandAction& action);
void addRename(Program& program, CommandAction& action);
void addCopy(Program& program, CommandAction& action);
void addVerify(Program& program, CommandAction& action);
void addSchemaCommand(Program& program, CommandAction& action);

// Options that several commands share, with unchecked values.

struct DatabaseArguments {
  std::string database;
  std::string argument;  // in place of the option
  std::string schema = inventory::Access().schema;
  double wait = 5;
  double serverTimeout = 60;
  bool force = false;

  // Uses the first argument that is a file or a server's address, unless there is a database.
  void takeFrom(std::vector<std::string>& arguments);
  // The database to open: a server's address, or a file's absolute path. Throws UsageError.
  std::string name() const;
  inventory::Access access() const;
};

// --database, --schema, --wait and --server-timeout.
void addDatabase(Command& command, DatabaseArguments& raw);
// The same, and DATABASE in place of --database.
void addDatabaseOrArgument(Command& command, DatabaseArguments& raw);
void addSchema(Command& command, DatabaseArguments& raw);
// --wait and --server-timeout.
void addWait(Command& command, DatabaseArguments& raw);
void addForce(Command& command, DatabaseArguments& raw);

// --at: the collections that were current at a time.
void addAt(Command& command, std::string& at);
// The time in an option, in the inventory's format; empty if the option is. Throws UsageError.
std::string timeOf(const char* option, const std::string& text);

// --max-size, in bytes.
void addMaxSize(Command& command, std::uint64_t& size);

// --format: table, csv or json.
void addFormat(Command& command, std::string& format);
Format formatOf(const std::string& format);
// --excel, which is for csv. Throws UsageError if it is given and the format is another one.
void addExcel(Command& command, bool& forExcel);
void requireCsv(bool forExcel, bool isCsv);

// The database to open, from an option or argument. Throws UsageError.
std::string databaseName(const std::string& option, const std::string& database);

// The absolute path. Throws UsageError unless it is UTF-8, since the component uses paths as text.
std::filesystem::path wholePath(const std::string& option, const std::string& path);

// The file to write. Throws UsageError if it is the database.
std::filesystem::path fileToWrite(const std::string& option, const std::string& name,
                                  const std::string& database);

void refuseEmpty(const char* option, const std::vector<std::string>& values);

// The items of comma-separated lists.
std::vector<std::string> commaSeparated(const std::vector<std::string>& lists);

}  // namespace host
