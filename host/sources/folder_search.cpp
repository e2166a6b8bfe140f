#include <system_error>
#include <utility>

#include "host/sources/search.h"
#include "os/file.h"
#include "platform/metabase/metabase.h"

namespace host {
namespace {

namespace fs = std::filesystem;

class FolderSearch {
 public:
  explicit FolderSearch(const fs::path& folder) : folder_(folder), waiting_{folder} {}

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
    }
    if (error) addProblem(folder, error);
  }

  void addFile(const fs::path& file, const os::FileStatus& status) {
    try {
      if (!platform::metabase::looksLikeMetabase(os::readHead(file, kHeadSize)))
        return results_.others.push_back({file.string(), {}, "not a metabase"});
    } catch (const std::system_error& error) {
      return addProblem(file, error.code());
    }
    Source source{Source::Kind::kFile, file};
    source.modified = status.modified;
    const std::string below = file.lexically_relative(folder_).generic_string();
    results_.found.push_back(
        {std::move(source), locate(below, folder_.string(), folder_.filename().string())});
  }

  void addProblem(const fs::path& path, const std::error_code& error) {
    results_.addProblem(path.string(), error.message());
  }

  const fs::path folder_;
  std::vector<fs::path> waiting_;
  SearchResults results_;
};

}  // namespace

SearchResults searchFolder(const fs::path& folder) {
  return FolderSearch(folder).run();
}

}  // namespace host
