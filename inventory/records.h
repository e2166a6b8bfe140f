// What every kind of database keeps of a publication, whatever its SQL: the two tables of our own, and the
// rows on their way into an inventory.
#pragma once

#include <bitset>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "inventory/clock.h"
#include "inventory/inventory.h"
#include "inventory/names.h"
#include "inventory/remainder.h"

namespace inventory {

inline constexpr std::string_view kCollections = kCollectionsTable;
inline constexpr std::string_view kProblems = "Problems";

// The tables that tell of the collections themselves. Most of their columns are text.
const Table& collectionsTable();
const Table& problemsTable();
enum class ColumnType { kText, kInteger, kReal };
ColumnType columnType(std::string_view column);

// The rows of these tables, value by value.
using Value = std::variant<std::string, std::int64_t, double>;
std::vector<Value> collectionValues(const Result& result, const std::string& published,
                                    const RowCounts& added, std::size_t problems);
std::vector<Value> problemValues(const std::string& server, const Problem& problem);

// A value of these tables out of a text that another inventory gives.
Value valueOf(std::string_view column, Cell text);

// Every table of an inventory, in the order in which they are shown.
std::vector<const Table*> everyTable();

// The items that a publication's part replaces, out of those that stand there.
std::vector<std::string> replacedItems(const TableScope& part, const std::vector<std::string>& there);

// What a publication of this scope finds on a server that the inventory's lists of it don't have. `listed`
// gives the items of a list, by its table and the column that names them.
Newcomers newcomersOf(
    const Scope& scope,
    const std::function<std::vector<std::string>(std::string_view table, std::string_view column)>& listed);

// What an update of "Problems" sets beside the server's name where that changes: the places that begin with
// it, in SQL that every kind of database takes. `name` is an expression.
std::string renamedInProblems(const std::string& name);

// Tells that a server can't have a name that another one has. Throws Error.
[[noreturn]] void failTaken(const std::string& database, const std::string& name);

// A list of texts as JSON.
std::string jsonList(const std::vector<std::string>& texts);

// No inventory keeps a longer value, so that every row fits into every kind of database.
inline constexpr std::size_t kLongestValue = std::size_t{32} << 20;

// The rows of a table on their way into an inventory: what no inventory can hold is replaced and told, and
// what is to be known of the rows is counted.
class CheckedRows : public Rows {
 public:
  CheckedRows(const Table& table, std::unique_ptr<Rows> rows);

  bool next() override;
  Cell cell(std::size_t column) override;

  std::int64_t count() const { return count_; }
  // What couldn't be kept as it was.
  std::vector<Problem>& problems() { return problems_; }

 private:
  Cell replaced(std::size_t column, std::string_view text);
  void tell(std::size_t column, std::string message);

  const Table& table_;
  const std::unique_ptr<Rows> rows_;
  const std::span<const ItemKind> kinds_;
  const std::size_t poolColumn_;
  std::int64_t count_ = 0;
  std::vector<std::string> replacements_;  // of this row, by column
  std::bitset<32> told_;                   // columns of this row
  std::vector<Problem> problems_;
};

}  // namespace inventory
