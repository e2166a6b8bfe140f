#include "host/collect/staging_database.h"

#include <new>
#include <optional>
#include <utility>

namespace host {
namespace {

// The status of each extension is looked up by these two columns.
constexpr std::string_view kExtensionIndex =
    "create index \"tblWSExtension names\" on tblWSExtension (\"Server name\", \"Web service extension\")";

class LoggedRows : public inventory::Rows {
 public:
  explicit LoggedRows(const sqlite::RowLog& log) : reader_(log) {}
  bool next() override { return reader_.next(); }
  inventory::Cell cell(std::size_t column) override { return reader_.cell(column); }

 private:
  sqlite::RowLog::Reader reader_;
};

// The rows of a collection without its database.
class TakenRows : public inventory::RowSource {
 public:
  void add(sqlite::RowLog log) { logs_.push_back(std::move(log)); }
  std::unique_ptr<inventory::Rows> rows(const inventory::Table& table) const override {
    return std::make_unique<LoggedRows>(logs_[inventory::findTable(table.name)]);
  }

 private:
  std::vector<sqlite::RowLog> logs_;  // by the table's place
};

}  // namespace

std::string stagingTableSql(const inventory::Table& table) {
  std::string columns;
  for (const inventory::Column& column : table.columns) {
    columns += (columns.empty() ? "" : ", ") + sqlite::quotedName(column.name) + " text collate nocase";
  }
  return "create table " + sqlite::quotedName(table.name) + " (" + columns + ")";
}

StagingDatabase::StagingDatabase(const std::string& name) : database_(name) {
  sqlite::Database& database = database_.database();
  for (const inventory::Table& table : inventory::tables()) database.execute(stagingTableSql(table));
  database.execute(kExtensionIndex);
  for (const inventory::Table& table : inventory::tables()) {
    readings_.push_back(
        database.prepare("select * from " + sqlite::quotedName(table.name) + " order by rowid"));
    counts_.push_back(database.prepare("select count(*) from " + sqlite::quotedName(table.name)));
    database_.bufferRows(std::string(table.name));
  }
}

std::unique_ptr<inventory::Rows> StagingDatabase::rows(const inventory::Table& table) const {
  class Reading : public inventory::Rows {
   public:
    explicit Reading(sqlite::Statement& statement) : statement_(statement) { statement_.reset(); }
    ~Reading() override { statement_.reset(); }
    bool next() override { return statement_.step(); }
    inventory::Cell cell(std::size_t column) override { return statement_.text(static_cast<int>(column)); }

   private:
    sqlite::Statement& statement_;
  };
  if (const auto* const log = database_.bufferedRows(table.name)) return std::make_unique<LoggedRows>(*log);
  return std::make_unique<Reading>(readings_[inventory::findTable(table.name)]);
}

inventory::RowCounts StagingDatabase::rowCounts() {
  inventory::RowCounts rows;
  for (const inventory::Table& table : inventory::tables()) {
    if (const auto* const log = database_.bufferedRows(table.name)) {
      rows.push_back(static_cast<std::int64_t>(log->rowCount()));
      continue;
    }
    sqlite::Statement& count = counts_[inventory::findTable(table.name)];
    count.step();
    rows.push_back(count.number(0));
    count.reset();
  }
  return rows;
}

std::unique_ptr<inventory::RowSource> StagingDatabase::takeRows(std::unique_ptr<StagingDatabase>& staging) {
  if (staging->database_.memoryInUse() > kMostKeptBytes) return std::move(staging);
  auto taken = std::make_unique<TakenRows>();
  for (const inventory::Table& table : inventory::tables()) {
    if (auto waiting = staging->database_.takeBufferedRows(table.name)) {
      taken->add(*std::move(waiting));
      continue;
    }
    sqlite::RowLog log(table.columns.size());
    const auto rows = staging->rows(table);
    const auto cellAt = [&](std::size_t column) { return rows->cell(column); };
    while (rows->next()) log.add(sqlite::RowLog::sizeOf(table.columns.size(), cellAt), cellAt);
    taken->add(std::move(log));
  }
  return taken;
}

void StagingDatabase::recycle(std::unique_ptr<StagingDatabase>& staging) noexcept {
  if (staging == nullptr) return;
  try {
    platform::store::PrivateDatabase& database = staging->database_;
    const bool isSmall = database.memoryInUse() <= kMostKeptBytes;
    if (isSmall) database.empty();
    if (isSmall && database.fatalError().empty()) return;
  } catch (const sqlite::Error&) {
  } catch (const std::bad_alloc&) {
  }
  staging.reset();
}

}  // namespace host
