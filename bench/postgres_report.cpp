// postgres_report: compares an inventory on a temporary PostgreSQL server with the server's own psql and with
// an SQLite file, in turn, and prints tables.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "inventory/inventory.h"
#include "tests/support/metabase_generator.h"
#include "tests/support/postgres.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> seconds) {
  std::sort(seconds.begin(), seconds.end());
  return seconds[seconds.size() / 2];
}

// Runs a program to its end.
double run(Strings arguments) {
  const auto start = Clock::now();
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) {
    std::vector<char*> raw;
    for (std::string& argument : arguments) raw.push_back(argument.data());
    raw.push_back(nullptr);
    execv(raw[0], raw.data());
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0)
    throw std::runtime_error(arguments[0] + " has ended with status " + std::to_string(status));
  return secondsSince(start);
}

// The rows of an inventory in memory.
class Memory : public inventory::RowSource {
 public:
  explicit Memory(const std::string& database) {
    const auto kept = inventory::openForReading(database, {});
    inventory::Reader reader = kept->read();
    const auto collections = reader.collections();
    for (const inventory::Table& table : inventory::tables()) {
      auto& all = tables_.emplace_back();
      reader.forEachRow(table, collections, [&](const inventory::TableRow& row) {
        auto& values = all.emplace_back();
        for (std::size_t column = 0; column < table.columns.size(); ++column) {
          const inventory::Cell cell = row.cell(column);
          values.push_back(cell ? std::optional(std::string(*cell)) : std::nullopt);
        }
        ++count_;
      });
    }
  }

  std::int64_t count() const { return count_; }

  std::unique_ptr<inventory::Rows> rows(const inventory::Table& table) const override {
    struct Reading : inventory::Rows {
      explicit Reading(const std::vector<Row>& all) : left(all) {}
      bool next() override { return ++at < left.size(); }
      inventory::Cell cell(std::size_t column) override {
        const auto& value = left[at][column];
        return value ? inventory::Cell(*value) : std::nullopt;
      }
      const std::vector<Row>& left;
      std::size_t at = static_cast<std::size_t>(-1);
    };
    return std::make_unique<Reading>(tables_[inventory::findTable(table.name)]);
  }

 private:
  using Row = std::vector<std::optional<std::string>>;
  std::vector<std::vector<Row>> tables_;
  std::int64_t count_ = 0;
};

class Report {
 public:
  explicit Report(const fs::path& directory)
      : directory_(directory),
        server_(std::make_unique<test::Folder>(directory), {"fsync=on", "max_wal_size=4GB"}) {
    server_.run("create database fleet");
  }

  // The publication of one large server compared with psql's copy of the same rows, including indexes.
  void againstPsql() {
    collect({metabase("LARGE", 10000)}, file_);
    const Memory rows(file_);
    inventory::Collected result;
    result.origin.server = "LARGE";
    result.rows = &rows;
    std::string script = "begin;\n";
    std::vector<double> ours, psql;
    for (int turn = 0; turn < 7; ++turn) {
      empty();
      auto start = Clock::now();
      inventory::openForPublishing(fleet_, {})->publish({&result, 1});
      ours.push_back(secondsSince(start));
      if (turn == 0) script += exported();
      empty();
      const fs::path commands = directory_ / "copy.sql";
      std::ofstream(commands) << script << "commit;\n";
      psql.push_back(run(
          {server_.program("psql"), "-q", "-X", "-v", "ON_ERROR_STOP=1", "-f", commands.string(), fleet_}));
    }
    const auto perSecond = [&](double seconds) { return static_cast<double>(rows.count()) / seconds; };
    std::printf("| Rows | Publication | `\\copy` by psql | Ratio |\n|---|---|---|---|\n");
    std::printf("| %lld | %.3f s, %.0f rows/s | %.3f s, %.0f rows/s | %.2f |\n",
                static_cast<long long>(rows.count()), median(ours), perSecond(median(ours)), median(psql),
                perSecond(median(psql)), median(psql) / median(ours));
  }

  void manyServers() {
    Strings many, few;
    for (int number = 0; number < 1000; ++number) many.push_back(metabase("S" + std::to_string(number), 10));
    few.assign(many.begin(), many.begin() + 10);
    std::vector<double> toServer, toFile, two;
    for (int turn = 0; turn < 5; ++turn) {
      empty();
      toServer.push_back(collect(many, fleet_));
      fs::remove(file_);
      toFile.push_back(collect(many, file_));
      empty();
      Strings jobs = many;
      jobs.insert(jobs.end(), {"--jobs", "2"});
      two.push_back(collect(jobs, fleet_));
    }
    const auto value = [&](const std::string& sql) { return std::stod(server_.run(sql, "fleet")); };
    const double bytes = value(
        "select sum(pg_total_relation_size(c.oid)) from pg_class c join pg_namespace n on "
        "n.oid = c.relnamespace where nspname = 'iis_inventory' and relkind = 'r'");
    const double rows = value("select sum(rows) from iis_inventory.collection");
    std::vector<double> among1000, among10;
    const std::string small = server_.address("master", "small");
    server_.run("create database small");
    collect(few, small);
    server_.run("checkpoint");
    for (int turn = 0; turn < 31; ++turn) {
      among1000.push_back(collect({many[5]}, fleet_));
      among10.push_back(collect({many[5]}, small));
    }
    std::printf("\n| What | Seconds | Against | Seconds | Ratio |\n|---|---|---|---|---|\n");
    line("1,000 servers of 10 sites", toServer, "into an SQLite file", toFile);
    line("the same, `--jobs 2`", two, "`--jobs 1`", toServer);
    line("One of 1,000 servers again", among1000, "one of 10 again", among10);
    std::printf("\n%.0f rows take %.0f bytes with their indexes: %.0f a row, %.0f a server of 10 sites\n",
                rows, bytes, bytes / rows, bytes / 1000);
  }

 private:
  static void line(const char* what, const std::vector<double>& left, const char* against,
                   const std::vector<double>& right) {
    std::printf("| %s | %.3f | %s | %.3f | %.2f |\n", what, median(left), against, median(right),
                median(left) / median(right));
  }

  std::string metabase(const std::string& server, std::int64_t sites) const {
    const fs::path file = directory_ / (server + ".xml");
    std::ofstream out(file, std::ios::binary);
    test::writeMetabase(test::optionsForSites(sites), out);
    return server + "=" + file.string();
  }

  double collect(Strings arguments, const std::string& database) const {
    arguments.insert(arguments.begin(), {IISINVENTORY_PROGRAM, "collect", "--quiet"});
    arguments.insert(arguments.end(), {"--database", database, "--log-dir", directory_.string()});
    return run(arguments);
  }

  // Leaves the tables, so that creating them is not measured.
  void empty() {
    const std::string all = server_.run(
        "select string_agg(format('%I.%I', schemaname, tablename), ', ') from pg_tables where schemaname = "
        "'iis_inventory' and tablename <> 'settings'",
        "fleet");
    if (all != "-") server_.run("truncate " + all, "fleet");
    server_.run("checkpoint");
  }

  // Every table as psql writes it, and the commands that restore it.
  std::string exported() {
    std::string commands;
    for (const inventory::Table& table : inventory::tables()) {
      const std::string file = (directory_ / (std::string(table.name) + ".copy")).string();
      const std::string copy = "\\copy iis_inventory.\"" + std::string(table.name) + "\" ";
      run({server_.program("psql"), "-q", "-X", "-c", copy + "to '" + file + "'", fleet_});
      commands += copy + "from '" + file + "'\n";
    }
    return commands;
  }

  const fs::path directory_;
  test::PostgresServer server_;
  const std::string fleet_ = server_.address("master", "fleet");
  const std::string file_ = (directory_ / "inventory.db").string();
};

}  // namespace

int main() {
  try {
    const test::Folder folder(fs::temp_directory_path());
    fs::permissions(folder.path(), fs::perms(0755));
    Report report(folder.path());
    report.againstPsql();
    report.manyServers();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "postgres_report: %s\n", failure.what());
    return 1;
  }
  return 0;
}
