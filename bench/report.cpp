// collection_report: measures whole collections at several sizes against the bare libraries, each measurement
// in a process of its own, and prints a table.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "automation/text.h"
#include "bench/collection.h"
#include "bench/metabase_generator.h"
#include "platform/metabase/servers.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kServer = "BENCH";

double secondsOf(const std::function<void()>& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Measurement {
  double seconds = 0;
  double megabytes = 0;  // the process's peak
};

// Runs `work`, which gives seconds, in a process of its own: its peak memory is its own too.
Measurement inChild(const std::function<double()>& work) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("can't make a pipe");
  std::fflush(stdout);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("can't fork");
  if (child == 0) {
    int status = 1;
    try {
      const double seconds = work();
      if (::write(ends[1], &seconds, sizeof seconds) == sizeof seconds) status = 0;
    } catch (const std::exception& failure) {
      std::fprintf(stderr, "collection_report: %s\n", failure.what());
    }
    _exit(status);
  }
  close(ends[1]);
  Measurement measurement;
  const bool answered = ::read(ends[0], &measurement.seconds, sizeof measurement.seconds) ==
                        static_cast<ssize_t>(sizeof measurement.seconds);
  close(ends[0]);
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  if (!answered || status != 0) throw std::runtime_error("a measurement failed");
  measurement.megabytes = static_cast<double>(usage.ru_maxrss) / 1024;
  return measurement;
}

// The best of several runs: what the machine does beside them only ever adds.
Measurement best(int runs, const std::function<double()>& work) {
  Measurement found = inChild(work);
  for (int run = 1; run < runs; ++run) {
    const Measurement next = inChild(work);
    if (next.seconds < found.seconds) found.seconds = next.seconds;
    if (next.megabytes > found.megabytes) found.megabytes = next.megabytes;
  }
  return found;
}

struct Line {
  long long sites = 0;
  double fileMegabytes = 0;
  std::int64_t rows = 0;
  Measurement whole, parse, withoutStore, bare, bareEachRow;
};

Line measure(std::int64_t sites, const fs::path& directory, int runs) {
  const fs::path metabase = directory / ("metabase" + std::to_string(sites) + ".xml");
  const fs::path database = directory / "inventory.db";
  const fs::path copy = directory / "bare.db";
  {
    std::ofstream out(metabase, std::ios::binary);
    bench::writeMetabase(bench::inProportion(sites), out);
  }
  const auto map = [&] {
    platform::metabase::mapServer(automation::fromUtf8(kServer),
                                  platform::metabase::Metabase::load(metabase));
  };

  Line line;
  line.sites = sites;
  line.fileMegabytes = static_cast<double>(fs::file_size(metabase)) / (1024 * 1024);
  line.whole = best(runs, [&] {
    bench::registerEverything();
    bench::createDatabase(database);
    return secondsOf([&] {
      map();
      bench::collectEverything(kServer, database, directory);
    });
  });
  line.rows = bench::countRows(database);
  line.parse = best(runs, [&] { return secondsOf(map); });
  line.withoutStore = best(runs, [&] {
    bench::registerEverything();
    const bench::NoStore none;
    return secondsOf([&] {
      map();
      bench::collectEverything(kServer, database, directory);
    });
  });
  const auto bare = [&](bench::BareWriter::Commit commit) {
    return best(runs, [&] {
      bench::createDatabase(copy);
      const bench::BareWriter writer(database);
      return secondsOf([&] { writer.write(metabase, copy, commit); });
    });
  };
  line.bareEachRow = bare(bench::BareWriter::Commit::kEachRow);
  line.bare = bare(bench::BareWriter::Commit::kOnce);
  if (bench::countRows(copy) != line.rows) throw std::runtime_error("the two databases differ");
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().extension() == ".log" || entry.path().extension() == ".Log") {
      throw std::runtime_error("the collection left problems in " + entry.path().string());
    }
  }
  return line;
}

void print(const std::vector<Line>& lines) {
  std::printf(
      "| FTP sites | File | Rows | Collection | | Bare | | Ratio | Bare, a commit per row | Ratio | Peak "
      "|\n");
  std::printf("|---|---|---|---|---|---|---|---|---|---|---|\n");
  for (const Line& line : lines) {
    const auto rows = static_cast<double>(line.rows);
    const auto perRow = [&](const Measurement& measured) { return measured.seconds * 1e6 / rows; };
    std::printf(
        "| %lld | %.1f MiB | %lld | %.0f rows/s | %.1f us/row | %.0f rows/s | %.1f us/row | %.2f | %.1f "
        "us/row | %.2f "
        "| %.0f MiB |\n",
        line.sites, line.fileMegabytes, static_cast<long long>(line.rows), rows / line.whole.seconds,
        perRow(line.whole), rows / line.bare.seconds, perRow(line.bare),
        perRow(line.bare) / perRow(line.whole), perRow(line.bareEachRow),
        perRow(line.bareEachRow) / perRow(line.whole), line.whole.megabytes);
  }
  std::printf("\n| FTP sites | Parse | Reads | Store |\n|---|---|---|---|\n");
  for (const Line& line : lines) {
    const double whole = line.whole.seconds;
    std::printf("| %lld | %.0f %% | %.0f %% | %.0f %% |\n", line.sites, 100 * line.parse.seconds / whole,
                100 * (line.withoutStore.seconds - line.parse.seconds) / whole,
                100 * (whole - line.withoutStore.seconds) / whole);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::vector<std::int64_t> sizes;
    for (int index = 1; index < argc; ++index) sizes.push_back(std::atoll(argv[index]));
    if (sizes.empty()) sizes = {100, 1000, 10000};

    std::string pattern = (fs::temp_directory_path() / "collection_report.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("can't make a temporary folder");
    const fs::path directory = pattern;
    struct Cleaner {
      fs::path directory;
      ~Cleaner() {
        std::error_code ignored;
        fs::remove_all(directory, ignored);
      }
    } const cleaner{directory};

    std::vector<Line> lines;
    for (const std::int64_t size : sizes) lines.push_back(measure(size, directory, size > 1000 ? 3 : 5));
    print(lines);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "collection_report: %s\n", failure.what());
    return 1;
  }
  return 0;
}
