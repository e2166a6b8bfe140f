#include <system_error>
#include <utility>

#include "host/sources/file_type.h"
#include "host/sources/search.h"
#include "os/file.h"

namespace host {
namespace {

namespace fs = std::filesystem;

class FolderSearch {
 public:
  FolderSearch(const fs::path& folder, SearchLimits& limits)
      : folder_(folder), limits_(limits), waiting_{folder} {}

  SearchResults run() {
    while (!waiting_.empty()) {
      const fs::path here = std::move(waiting_.back());
      waiting_.pop_back();
      searchLevel(here);
    }
    return std::move(results_);
  }

 private:
  void searchLevel(const fs::path& folder) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
      std::error_code failure;
      const os::FileStatus status = os::linkStatusOf(entry->path(), failure);
      if (failure && failure != std::errc::no_such_file_or_directory) addProblem(entry->path(), failure);
      if (status.kind == os::FileKind::kDirectory) waiting_.push_back(entry->path());
      if (status.kind == os::FileKind::kRegular) addFile(entry->path(), status);
      if (status.kind == os::FileKind::kStream || status.kind == os::FileKind::kOther) {
        addOther(entry->path(), entry->is_symlink(failure) ? "a link, not followed" : "not a regular file");
      }
    }
    if (error) addProblem(folder, error);
  }

  void addFile(const fs::path& file, const os::FileStatus& status) {
    FileType type;
    try {
      type = recognizeFile(os::readHead(file, kHeadSize), file.string());
    } catch (const std::system_error& error) {
      return addProblem(file, error.code());
    }
    Location location = locationOf(file);
    if (type.kind == FileType::Kind::kMetabase) {
      Source source{Source::Kind::kFile, file};
      source.modified = status.modified;
      return results_.found.push_back({std::move(source), std::move(location)});
    }
    if (type.kind == FileType::Kind::kUnsupportedArchive)
      return results_.addProblem(file.string(), unsupportedArchive(type));
    if (type.kind == FileType::Kind::kArchive) {
      if (auto results = searchArchive(file, location, limits_)) return results_.add(*std::move(results));
    }
    addOther(file, "not a metabase");
  }

  Location locationOf(const fs::path& file) const {
    return locate(file.lexically_relative(folder_).generic_string(), folder_.string(),
                  folder_.filename().string());
  }

  void addOther(const fs::path& file, const std::string& what) {
    results_.addOther(file.string(), locationOf(file), what);
  }

  void addProblem(const fs::path& path, const std::error_code& error) {
    results_.addProblem(path.string(), error.message());
  }

  const fs::path folder_;
  SearchLimits& limits_;
  std::vector<fs::path> waiting_;
  SearchResults results_;
};

}  // namespace

SearchResults searchFolder(const fs::path& folder, SearchLimits& limits) {
  return FolderSearch(folder, limits).run();
}

}  // namespace host
