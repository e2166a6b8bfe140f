// The rows of a report's servers, where they can be asked for one site or pool at a time.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/report.h"
#include "inventory/coverage.h"
#include "inventory/inventory.h"
#include "inventory/not_known.h"
#include "inventory/tables.h"
#include "sqlite/database.h"

namespace host {

// A row of a table, with what of it isn't known.
struct Cells {
  const inventory::Table* table = nullptr;
  std::vector<std::optional<std::string>> values;
  inventory::NotKnownCells notKnown;

  bool isUnknown(std::string_view column) const { return notKnown.has(place(column)); }
  bool isWritten(std::string_view column) const { return values[place(column)].has_value(); }
  // Empty where nothing was written.
  std::string at(std::string_view column) const { return values[place(column)].value_or(""); }

 private:
  std::size_t place(std::string_view column) const { return inventory::columnIndex(*table, column); }
};

// The servers of a report in a private database, in which the rows of one site or pool are found at once.
class Book {
 public:
  // Takes the servers from the options' database into a file in the folder. Throws as report() does.
  Book(const ReportOptions& options, const std::filesystem::path& folder);

  // To be called once, before anything is asked for but the servers.
  void open();

  const std::vector<std::string>& servers() const { return servers_; }
  inventory::Snapshot& snapshot() { return *snapshot_; }
  const inventory::NotKnown& notKnown() const { return notKnown_; }
  const inventory::Coverage& coverage() const { return coverage_; }

  // The rows of a server in a table, in their order: of one site or pool, or all of them. The row may be
  // taken. Not to be called for the same table from within.
  void forEach(std::string_view name, const std::string& server, std::string_view key,
               const std::string& item, const std::function<void(Cells&)>& each);
  void forEach(std::string_view name, const std::string& server, const std::function<void(Cells&)>& each) {
    forEach(name, server, {}, {}, each);
  }
  std::vector<Cells> rows(std::string_view name, const std::string& server, std::string_view key = {},
                          const std::string& item = {});

  // Rows of a server in one of the inventory's own tables, by column: so many of them, behind so many others.
  std::vector<std::map<std::string, std::string>> own(const char* table, const std::string& server,
                                                      std::size_t most, std::size_t behind = 0);

  // What a statement counts that has the server for its one parameter.
  std::int64_t count(const std::string& sql, const std::string& server);

 private:
  void spellServersAlike();
  sqlite::Statement& prepared(const inventory::Table& table, std::string_view key);

  const std::filesystem::path file_;
  std::vector<std::string> servers_;
  std::unique_ptr<sqlite::Database> database_;
  std::unique_ptr<inventory::Inventory> inventory_;
  std::unique_ptr<inventory::Snapshot> snapshot_;
  inventory::NotKnown notKnown_;
  inventory::Coverage coverage_;
  std::map<std::string, sqlite::Statement> statements_;
};

}  // namespace host
