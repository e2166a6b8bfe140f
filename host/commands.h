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

// What a command does; gives the exit status.
using Work = std::function<int(Output&)>;

// Each adds one command to the program, with its options and its help. Where it is the one that is asked for,
// parsing sets `work` and may throw UsageError.
void addCollect(CLI::App& program, Work& work);
void addCheck(CLI::App& program, Work& work);
void addShow(CLI::App& program, Work& work);
void addDiff(CLI::App& program, Work& work);
void addReport(CLI::App& program, Work& work);
void addFindings(CLI::App& program, Work& work);
void addServers(CLI::App& program, Work& work);
void addRemove(CLI::App& program, Work& work);
void addRename(CLI::App& program, Work& work);
void addCopy(CLI::App& program, Work& work);

// What several commands have. A value is what the command line says, before it is made sense of.

struct RawDatabase {
  std::string database;
  std::string schema = inventory::Access().schema;
  double wait = 5;
  bool force = false;

  // The database as it is to be opened: an address as it is, a file as its absolute path. Throws UsageError.
  std::string name() const;
  inventory::Access access() const;
};

// --database, --schema and --wait.
void addDatabase(CLI::App& command, RawDatabase& raw);
void addSchema(CLI::App& command, RawDatabase& raw);
void addWait(CLI::App& command, RawDatabase& raw);
void addForce(CLI::App& command, RawDatabase& raw);

// --max-size, in bytes.
void addMaxSize(CLI::App& command, std::uint64_t& size);

// --format: table, csv or json.
void addFormat(CLI::App& command, std::string& format);
Format formatOf(const std::string& format);

// An option with one value that may be given again and again.
void addList(CLI::App& command, const char* option, std::vector<std::string>& values, const char* type,
             const char* what);

// A database that an option or an argument names, as it is to be opened.
std::string databaseName(const std::string& option, const std::string& database);

// The absolute path. The component takes paths as text, so other ones than UTF-8 would become other files'.
std::filesystem::path wholePath(const std::string& option, const std::string& path);

void refuseEmpty(const char* option, const std::vector<std::string>& values);

}  // namespace host
