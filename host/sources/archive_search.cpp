#include <string_view>
#include <utility>

#include <fmt/core.h>

#include "host/sources/archive.h"
#include "host/sources/file_type.h"
#include "host/sources/search.h"
#include "os/file.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr int kAttempts = 3;
// Consecutive unreadable entries after which an archive is given up.
constexpr int kMostFailures = 100;
// How deep archives may lie within each other, the outermost included.
constexpr std::size_t kMostLevels = 3;

// One pass through an archive and those within it.
class ArchiveSearch {
 public:
  ArchiveSearch(const fs::path& file, const SearchLimits& limits)
      : file_(file), limits_(limits), nestedLeft_(limits.maxSize) {}

  // Searches an archive, which is `self` and itself a file at `location`.
  void run(Archive& archive, const Source& self, const Location& location) {
    if (!archive.isSingle()) results_.others.push_back({self.shown(), {}, "searched"});
    int failures = 0;
    for (std::size_t number = 0; failures < kMostFailures; ++number) {
      Source source = self;
      source.members.push_back(number);
      try {
        if (!archive.next()) break;
        failures = 0;
        const std::string name = archive.name();
        source.memberName += source.memberName.empty() || name.empty() ? name : ":" + name;
        source.modified = archive.modified();
        addMember(archive, std::move(source),
                  archive.isSingle() ? location : locate(name, self.shown(), location.stem));
      } catch (const ArchiveError& error) {
        const bool isOver = error.isOver() || ++failures == kMostFailures;
        addProblem(source, fmt::format("{}{}", error.what(),
                                       isOver && !archive.isSingle() ? "; what follows was not read" : ""));
        if (isOver) break;
      }
    }
  }

  void addProblem(const Source& source, std::string_view why) { results_.addProblem(source.shown(), why); }

  std::uint64_t mostKept() const { return limits_.mostKept; }
  SearchResults takeResults() { return std::move(results_); }

 private:
  void addMember(Archive& archive, const Source& source, const Location& location) {
    if (archive.isLink()) addProblem(source, "it is a link to another member, which is not followed");
    if (!archive.isFile()) return;
    if (archive.isEncrypted()) return addProblem(source, "it is encrypted");
    std::string head;
    archive.read(head, kHeadSize);
    switch (const FileType type = recognizeFile(head, source.memberName); type.kind) {
      case FileType::Kind::kMetabase:
        return addMetabase(archive, source, location, std::move(head));
      case FileType::Kind::kArchive:
        return addNested(archive, source, location, std::move(head));
      case FileType::Kind::kUnsupportedArchive:
        return addProblem(source, unsupportedArchive(type));
      case FileType::Kind::kOther:
        return results_.addOther(source.shown(), location, "not a metabase");
    }
  }

  void addMetabase(Archive& archive, Source source, const Location& location, std::string head) {
    auto bytes = archive.readAll(limits_.maxSize, std::move(head));
    if (!bytes) return addProblem(source, tooLarge(limits_.maxSize));
    if (!archive.warning().empty())
      results_.notes.push_back(fmt::format("{}: {}", source.shown(), archive.warning()));
    if (bytes->size <= limits_.mostKept) {
      limits_.mostKept -= bytes->size;
      source.kept = std::make_shared<std::optional<os::FileBytes>>(std::move(bytes));
    }
    results_.found.push_back({std::move(source), location});
  }

  void addNested(Archive& archive, const Source& source, const Location& location, std::string head) {
    if (source.members.size() == kMostLevels)
      return addProblem(source, fmt::format("it is an archive within {} others (unpack it)", kMostLevels));
    const auto bytes = archive.readAll(nestedLeft_, std::move(head));
    if (!bytes) {
      return addProblem(source,
                        fmt::format("the archives in '{}' are together larger than {} bytes (--max-size)",
                                    file_.string(), limits_.maxSize));
    }
    nestedLeft_ -= bytes->size;
    try {
      if (auto nested = Archive::open({bytes->bytes.get(), bytes->size}, source.modified))
        return run(*nested, source, location);
    } catch (const ArchiveError& error) {
      return addProblem(source, error.what());
    }
    results_.addOther(source.shown(), location, "not a metabase");
  }

  const fs::path& file_;
  SearchLimits limits_;
  std::uint64_t nestedLeft_;
  SearchResults results_;
};

}  // namespace

std::optional<SearchResults> searchArchive(const fs::path& file, const Location& location,
                                           SearchLimits& limits) {
  const Source self{Source::Kind::kMember, file};
  for (int attempt = 1;; ++attempt) {
    const auto stamp = os::stampOf(file);
    ArchiveSearch search(file, limits);
    try {
      auto archive = Archive::open(file);
      if (!archive) return std::nullopt;
      search.run(*archive, self, location);
    } catch (const ArchiveError& error) {
      search.addProblem(self, error.what());
    }
    SearchResults results = search.takeResults();
    if (stamp && os::stampOf(file) == stamp) {
      for (Candidate& each : results.found) each.source.archive = *stamp;
      limits.mostKept = search.mostKept();
      return results;
    }
    if (attempt < kAttempts) continue;
    results = {};
    results.addProblem(file.string(), "the archive keeps changing while it is being read");
    return results;
  }
}

}  // namespace host
