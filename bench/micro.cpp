// Benchmarks of the single steps of a collection.

#include <benchmark/benchmark.h>

#include <array>
#include <filesystem>
#include <sstream>
#include <string>

#include "automation/object.h"
#include "automation/runtime.h"
#include "bench/collection.h"
#include "frame/log_record.h"
#include "inventory/catalog/catalog.h"
#include "platform/metabase/metabase.h"
#include "platform/store/private_database.h"
#include "tests/support/metabase_generator.h"

namespace {

using automation::Text;
using platform::metabase::Metabase;

// A server with `sites` FTP sites, six nodes each, plus the directories below.
std::string generateMetabase(std::int64_t sites, std::int64_t directories) {
  test::MetabaseOptions options;
  options.sites = sites;
  options.directories = directories;
  std::ostringstream out;
  test::writeMetabase(options, out);
  return out.str();
}

void parse(benchmark::State& state) {
  const std::string bytes = generateMetabase(state.range(0), 5);
  for (auto _ : state) benchmark::DoNotOptimize(Metabase::parse(bytes, "generated"));
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes.size()) * state.iterations());
}
BENCHMARK(parse)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// One path in a metabase of about that many nodes, a different one each time.
void lookUp(benchmark::State& state) {
  const std::int64_t sites = state.range(0) / 10;
  const auto metabase = Metabase::parse(generateMetabase(sites, 8), "generated");
  std::int64_t site = 0;
  for (auto _ : state) {
    site = (site + 7919) % sites;
    const Text path = u"LM/MSFTPSVC/" + automation::fromUtf8(std::to_string(site + 1)) + u"/root/dir0/dir1";
    benchmark::DoNotOptimize(metabase->find(metabase->root(), path));
  }
  state.counters["nodes"] = static_cast<double>(metabase->nodeCount());
}
BENCHMARK(lookUp)->Arg(10000)->Arg(1000000);

void readProperty(benchmark::State& state) {
  static constexpr std::array kNames = {u"ServerComment", u"MaxConnections", u"logextfiletime",
                                        u"ServerBindings"};
  const auto metabase = Metabase::parse(generateMetabase(100, 5), "generated");
  const auto node = *metabase->find(metabase->root(), u"LM/MSFTPSVC/50");
  const Text name = kNames[static_cast<std::size_t>(state.range(0))];
  for (auto _ : state) benchmark::DoNotOptimize(metabase->read(node, *metabase->property(name), u"S"));
  state.SetLabel(automation::toUtf8(name));
}
BENCHMARK(readProperty)->DenseRange(0, 3);

// One saved row of eight columns through late binding.
void saveRow(benchmark::State& state) {
  const std::string name = "/nowhere/inventory.db";
  platform::store::PrivateDatabase database(name);
  const inventory::Table& table = inventory::tables()[inventory::table("tblGeneral")];
  test::createTables(database.database());
  const platform::store::ConnectionRedirect redirect(database);
  const automation::ObjectRef connection = automation::CreateObject(u"ADODB.Connection");
  automation::call(connection, u"Open", automation::fromUtf8(name));
  const automation::ObjectRef rows = automation::CreateObject(u"ADODB.Recordset");
  automation::write(rows, u"LockType", 3);
  automation::write(rows, u"ActiveConnection", connection);
  automation::call(rows, u"Open", u"Select * from tblGeneral where 1=2");
  std::vector<Text> columns;
  for (const inventory::Column& column : table.columns) columns.push_back(automation::fromUtf8(column.name));
  for (auto _ : state) {
    automation::call(rows, u"AddNew");
    for (std::size_t column = 0; column < 8; ++column) {
      automation::writeIndexed(rows, u"Collect", automation::TextView(columns[column]), u"Some value");
    }
    automation::call(rows, u"Update");
  }
}
BENCHMARK(saveRow)->Unit(benchmark::kMicrosecond);

// One record: an open, a write and a close. The file grows.
void logRecord(benchmark::State& state) {
  const auto path = std::filesystem::temp_directory_path() / "micro_benchmark.log";
  const Text text = automation::fromUtf8(path.string());
  for (auto _ : state) {
    TORVINFTPAppDataCom::AppendLogRecord(text, 13, u"Type mismatch", u"TORVINFTPAppDataCom",
                                         u"GetLogFileSetting");
  }
  std::filesystem::remove(path);
}
BENCHMARK(logRecord)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  bench::registerEverything();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
