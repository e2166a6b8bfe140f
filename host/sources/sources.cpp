#include "host/sources/sources.h"

#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/core.h>

#include "host/sources/file_type.h"
#include "host/sources/search.h"
#include "host/sources/server_name.h"
#include "host/sources/source_choice.h"
#include "host/usage_error.h"
#include "os/file.h"
#include "os/paths.h"
#include "platform/metabase/metabase.h"

namespace host {
namespace {

namespace fs = std::filesystem;

// Whether a file is a metabase by its content, or cannot be read.
bool mayBeMetabase(const fs::path& file) {
  try {
    return platform::metabase::looksLikeMetabase(os::readHead(file, kHeadSize));
  } catch (const std::system_error&) {
    return true;
  }
}

// An argument of the form [NAME=]PATH.
struct Argument {
  explicit Argument(const std::string& whole) : text(whole), path(whole) {
    // An equals sign after a slash belongs to the path.
    const std::size_t equals = whole.find('=');
    if (equals == std::string::npos || equals > whole.find('/')) return;
    name = whole.substr(0, equals);
    path = whole.substr(equals + 1);
  }

  [[noreturn]] void refuse(std::string_view why) const {
    throw UsageError(fmt::format("METABASE '{}': {}", text, why));
  }

  std::string text;
  std::string path;
  std::optional<std::string> name;
};

// Collects the sources of all arguments.
class Finder {
 public:
  Finder(std::uint64_t maxSize, Sources::Names names)
      : limits_{maxSize, maxSize}, names_(names), choice_(names) {}

  void add(const Argument& argument) {
    if (argument.path.empty()) argument.refuse("the path is empty");
    if (argument.path == kStandardInput) return addStandardInput(argument);
    const fs::path whole = os::absolutePath(argument.path);
    std::error_code ignored;
    const os::FileStatus status = os::statusOf(whole, ignored);
    const os::FileKind kind = status.kind;
    if (kind == os::FileKind::kDirectory) return addFound(argument, searchFolder(whole, limits_), whole);
    if (kind == os::FileKind::kRegular && !mayBeMetabase(whole)) {
      const Location location = locate(whole.relative_path().generic_string(), "", "");
      if (auto results = searchArchive(whole, location, limits_))
        return addFound(argument, *std::move(results), whole);
    }
    const bool isStream = kind == os::FileKind::kStream;
    Source source{isStream ? Source::Kind::kStream : Source::Kind::kFile, whole};
    if (!isStream) source.modified = status.modified;
    const std::string name = argument.name ? *argument.name : nameOfFile(whole);
    choice_.addGiven(argument.text, name, std::move(source));
  }

  Sources finish() { return choice_.finish(); }

 private:
  void addStandardInput(const Argument& argument) {
    if (!argument.name && names_ == Sources::Names::kEachItsOwn)
      argument.refuse("put a name and '=' before it");
    if (std::exchange(hasStandardInput_, true)) argument.refuse("the standard input can be read only once");
    choice_.addGiven(argument.text, argument.name.value_or("input"),
                     Source{Source::Kind::kStream, std::string(kStandardInput)});
  }

  void addFound(const Argument& argument, SearchResults results, const fs::path& place) {
    if (results.found.empty() && results.problems.empty())
      results.problems.push_back(fmt::format("no metabase in '{}'", place.string()));
    const bool isCompressedFile = results.found.size() == 1 && results.others.empty() &&
                                  results.found.front().source.kind == Source::Kind::kMember &&
                                  results.found.front().source.memberName.empty();
    if (isCompressedFile && !argument.name) {
      const std::string name = nameOfFile(place.parent_path() / place.stem());
      return choice_.addGiven(argument.text, name, std::move(results.found.front().source));
    }
    choice_.addFound(argument.text, argument.name, std::move(results));
  }

  SearchLimits limits_;
  const Sources::Names names_;
  SourceChoice choice_;
  bool hasStandardInput_ = false;
};

}  // namespace

std::string Source::shown() const {
  if (kind == Kind::kStream && path == kStandardInput) return "the standard input";
  return memberName.empty() ? path.string() : path.string() + ":" + memberName;
}

Sources findSources(const std::vector<std::string>& arguments, std::uint64_t maxSize, Sources::Names names) {
  Finder finder(maxSize, names);
  for (const std::string& argument : arguments) finder.add(Argument(argument));
  return finder.finish();
}

}  // namespace host
