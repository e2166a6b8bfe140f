// The commands of the program, each with its part of the command line.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/options.h"
#include "host/output.h"

namespace CLI {
class App;
}

namespace host {

// A command's action; returns the exit status.
using Work = std::function<int(Output&)>;

// Each adds one command to the program, with its options and its help. If the command is given, parsing sets
// `work` and may throw UsageError.
void addCollect(CLI::App& program, Work& work);
void addCheck(CLI::App& program, Work& work);
void addShow(CLI::App& program, Work& work);
void addDiff(CLI::App& program, Work& work);
void addReport(CLI::App& program, Work& work);
void addFindings(CLI::App& program, Work& work);
void addRules(CLI::App& program, Work& work);
void addServers(CLI::App& program, Work& work);
void addRemove(CLI::App& program, Work& work);
void addRename(CLI::App& program, Work& work);
void addCopy(CLI::App& program, Work& work);
void addVerify(CLI::App& program, Work& work);
void addSchemaCommand(CLI::App& program, Work& work);

// Options that several commands have. Their values are as on the command line, not yet checked.

struct RawDatabase {
  std::string database;
  std::string schema = inventory::Access().schema;
  double wait = 5;
  double serverTimeout = 60;
  bool force = false;

  // The database to open: an address as it is, a file as its absolute path. Throws UsageError.
  std::string name() const;
  inventory::Access access() const;
};

// --database, --schema, --wait and --server-timeout.
void addDatabase(CLI::App& command, RawDatabase& raw);
void addSchema(CLI::App& command, RawDatabase& raw);
// --wait and --server-timeout.
void addWait(CLI::App& command, RawDatabase& raw);
void addForce(CLI::App& command, RawDatabase& raw);

// --at: the collections that were current at a time.
void addAt(CLI::App& command, std::string& at);
// A time that an option gives, as the inventory writes it; empty if it is. Throws UsageError.
std::string timeOf(const char* option, const std::string& text);

// --max-size, in bytes.
void addMaxSize(CLI::App& command, std::uint64_t& size);

// --format: table, csv or json.
void addFormat(CLI::App& command, std::string& format);
Format formatOf(const std::string& format);

// An option with one value that may be repeated.
void addList(CLI::App& command, const char* option, std::vector<std::string>& values, const char* type,
             const char* what);

// The database to open that an option or an argument names.
std::string databaseName(const std::string& option, const std::string& database);

// The absolute path. Throws UsageError unless it is UTF-8: the component takes paths as text.
std::filesystem::path wholePath(const std::string& option, const std::string& path);

void refuseEmpty(const char* option, const std::vector<std::string>& values);

}  // namespace host
