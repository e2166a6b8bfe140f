// collection_report: compares the program with the bare libraries, each measurement in a separate process and
// alternating, and prints tables.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

#include "bench/collection.h"
#include "tests/support/folder.h"
#include "tests/support/metabase_generator.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Measurement {
  double seconds = 0;
  double megabytes = 0;  // peak memory of the process
};

// Runs `work`, which returns seconds, in a separate process, so that its peak memory is measured separately.
Measurement runInChild(const std::function<double()>& work) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("cannot make a pipe");
  std::fflush(stdout);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot fork");
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

// The program from start to end, as a user runs it.
Measurement program(const std::vector<std::string>& arguments) {
  const auto start = Clock::now();
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) {
    std::vector<char*> raw;
    std::vector<std::string> all{IISINVENTORY_PROGRAM, "collect", "--quiet"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    for (std::string& argument : all) raw.push_back(argument.data());
    raw.push_back(nullptr);
    execv(raw[0], raw.data());
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  if (status != 0) throw std::runtime_error("the program has ended with status " + std::to_string(status));
  return {secondsSince(start), static_cast<double>(usage.ru_maxrss) / 1024};
}

// The median is robust against other load on the machine.
double median(std::vector<Measurement> runs) {
  std::sort(runs.begin(), runs.end(),
            [](const Measurement& left, const Measurement& right) { return left.seconds < right.seconds; });
  return runs[runs.size() / 2].seconds;
}

class Report {
 public:
  explicit Report(fs::path directory) : directory_(std::move(directory)) {}

  void againstBare(const std::vector<std::int64_t>& sizes) {
    std::printf("| FTP sites | File | Rows | iisinventory | Bare libraries | Ratio | Peak memory |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    for (const std::int64_t sites : sizes) lineAgainstBare(sites);
  }

  void sideBySide() {
    const int runs = 5;
    const fs::path large = metabase("LARGE", 10000);
    std::vector<std::string> small;
    for (int server = 0; server < 1000; ++server) small.push_back(named("S" + std::to_string(server), 10));
    std::vector<std::string> four;
    for (int server = 0; server < 4; ++server) four.push_back(named("Q" + std::to_string(server), 2500));

    std::vector<Measurement> one, many, alone, together, again, fresh;
    for (int run = 0; run < runs; ++run) {
      one.push_back(collect({"LARGE=" + large.string()}, true));
      many.push_back(collect(small, true));
      again.push_back(collect({small[500]}, false));
      fresh.push_back(collect({small[500]}, true));
      alone.push_back(collect(four, true));
      auto two = four;
      two.insert(two.end(), {"--jobs", "2"});
      together.push_back(collect(two, true));
    }
    std::printf("\n| What | Seconds | Against | Seconds | Ratio |\n|---|---|---|---|---|\n");
    line("1,000 servers of 10 sites", many, "1 server of 10,000 sites", one);
    line("One of 1,000 servers again", again, "the same into a new file", fresh);
    line("4 servers of 2,500 sites, `--jobs 1`", alone, "`--jobs 2`", together);
  }

 private:
  static void line(const char* what, const std::vector<Measurement>& left, const char* against,
                   const std::vector<Measurement>& right) {
    std::printf("| %s | %.3f | %s | %.3f | %.2f |\n", what, median(left), against, median(right),
                median(left) / median(right));
  }

  fs::path metabase(const std::string& server, std::int64_t sites) const {
    const fs::path file = directory_ / (server + ".xml");
    std::ofstream out(file, std::ios::binary);
    test::writeMetabase(test::optionsForSites(sites), out);
    return file;
  }
  std::string named(const std::string& server, std::int64_t sites) const {
    return server + "=" + metabase(server, sites).string();
  }

  Measurement collect(std::vector<std::string> arguments, bool intoNewFile) const {
    if (intoNewFile) fs::remove(database_);
    arguments.insert(arguments.end(), {"--database", database_.string()});
    return program(arguments);
  }

  void lineAgainstBare(std::int64_t sites) const {
    const fs::path file = metabase("BENCH", sites);
    collect({"BENCH=" + file.string()}, true);
    const std::int64_t rows = bench::countRows(database_);
    const fs::path collected = directory_ / "collected.db";
    fs::rename(database_, collected);
    const fs::path copy = directory_ / "bare.db";
    std::vector<Measurement> ours, bare;
    const int runs = sites > 1000 ? 7 : 15;
    for (int run = 0; run < runs; ++run) {
      ours.push_back(collect({"BENCH=" + file.string()}, true));
      bare.push_back(runInChild([&] {
        bench::createDatabase(copy);
        const bench::BareWriter writer(collected);
        const auto start = Clock::now();
        writer.write(file, copy);
        return secondsSince(start);
      }));
    }
    if (bench::countRows(copy) != rows) throw std::runtime_error("the two databases differ");
    double peak = 0;
    for (const Measurement& run : ours) peak = std::max(peak, run.megabytes);
    const auto perSecond = [&](const std::vector<Measurement>& runsOf) {
      return static_cast<double>(rows) / median(runsOf);
    };
    std::printf("| %lld | %.1f MiB | %lld | %.3f s, %.0f rows/s | %.3f s, %.0f rows/s | %.2f | %.0f MiB |\n",
                static_cast<long long>(sites), static_cast<double>(fs::file_size(file)) / (1024 * 1024),
                static_cast<long long>(rows), median(ours), perSecond(ours), median(bare), perSecond(bare),
                median(bare) / median(ours), peak);
    fs::remove(collected);
  }

  const fs::path directory_;
  const fs::path database_ = directory_ / "inventory.db";
};

}  // namespace

int main(int argc, char** argv) {
  try {
    std::vector<std::int64_t> sizes;
    for (int index = 1; index < argc; ++index) sizes.push_back(std::atoll(argv[index]));
    const test::Folder folder(fs::temp_directory_path());

    Report report(folder.path());
    report.againstBare(sizes.empty() ? std::vector<std::int64_t>{100, 1000, 10000} : sizes);
    if (sizes.empty()) report.sideBySide();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "collection_report: %s\n", failure.what());
    return 1;
  }
  return 0;
}
