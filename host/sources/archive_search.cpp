#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/core.h>

#include "host/sources/archive.h"
#include "host/sources/search.h"
#include "os/file.h"
#include "platform/metabase/metabase.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr int kAttempts = 3;
// Consecutive unreadable entries after which an archive is given up.
constexpr int kMostFailures = 100;

// One pass through an archive.
class ArchiveSearch {
 public:
  ArchiveSearch(const fs::path& file, std::uint64_t maxSize, std::size_t mostKept)
      : file_(file), maxSize_(maxSize), mostKept_(mostKept) {}

  void run(Archive& archive) {
    if (!archive.isSingle()) results_.others.push_back({file_.string(), {}, "searched"});
    int failures = 0;
    for (std::size_t member = 0; failures < kMostFailures; ++member) {
      std::string name;
      try {
        if (!archive.next()) break;
        failures = 0;
        name = archive.name();
        addMember(archive, Source{Source::Kind::kMember, file_, member, name});
      } catch (const ArchiveError& error) {
        const bool isOver = error.isOver() || ++failures == kMostFailures;
        addProblem(
            Source{Source::Kind::kMember, file_, member, name},
            std::string(error.what()) + (isOver && !archive.isSingle() ? "; what follows was not read" : ""));
        if (isOver) break;
      }
    }
  }

  void addProblem(const Source& source, std::string_view why) { results_.addProblem(source.shown(), why); }

  std::size_t mostKept() const { return mostKept_; }
  SearchResults takeResults() { return std::move(results_); }

 private:
  // Adds a member if it is a metabase.
  void addMember(Archive& archive, Source source) {
    if (archive.isLink()) addProblem(source, "it is a link to another member, which is not followed");
    if (!archive.isFile()) return;
    if (archive.isEncrypted()) return addProblem(source, "it is encrypted");
    auto bytes = std::make_shared<std::string>();
    bool more = archive.read(*bytes, kHeadSize);
    if (!platform::metabase::looksLikeMetabase(*bytes))
      return results_.others.push_back({source.shown(), {}, "not a metabase"});
    if (more && maxSize_ > bytes->size()) more = archive.read(*bytes, maxSize_ - bytes->size());
    if (more && archive.read(*bytes, 1)) return addProblem(source, tooLarge(maxSize_));
    if (!archive.warning().empty())
      results_.notes.push_back(fmt::format("{}: {}", source.shown(), archive.warning()));
    source.modified = archive.modified();
    if (bytes->size() <= mostKept_) {
      mostKept_ -= bytes->size();
      source.kept = std::move(bytes);
    }
    const std::string place = source.path.string();
    Location location = source.memberName.empty() ? locate(place.substr(1), "", "")
                                                  : locate(source.memberName, place, stemOf(source.path));
    results_.found.push_back({std::move(source), std::move(location)});
  }

  const fs::path& file_;
  const std::uint64_t maxSize_;
  std::size_t mostKept_;
  SearchResults results_;
};

}  // namespace

std::optional<SearchResults> searchArchive(const fs::path& file, std::uint64_t maxSize,
                                           std::size_t& mostKept) {
  for (int attempt = 1;; ++attempt) {
    const auto stamp = os::stampOf(file);
    ArchiveSearch search(file, maxSize, mostKept);
    try {
      auto archive = Archive::open(file);
      if (!archive) return std::nullopt;
      search.run(*archive);
    } catch (const ArchiveError& error) {
      search.addProblem(Source{Source::Kind::kMember, file}, error.what());
    }
    SearchResults results = search.takeResults();
    if (stamp && os::stampOf(file) == stamp) {
      for (Candidate& each : results.found) each.source.archive = *stamp;
      mostKept = search.mostKept();
      return results;
    }
    if (attempt < kAttempts) continue;
    results = {};
    results.addProblem(file.string(), "the archive keeps changing while it is being read");
    return results;
  }
}

}  // namespace host
