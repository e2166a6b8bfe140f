#include "host/sources/sources.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "automation/text.h"
#include "host/sources/archive.h"
#include "host/sources/server_name.h"
#include "host/usage_error.h"
#include "inventory/names.h"
#include "os/file.h"
#include "os/paths.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/file.h"
#include "platform/metabase/metabase.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using os::FileBytes;

constexpr std::string_view kMetabaseFile = "MetaBase.xml";
constexpr std::string_view kStandardInput = "-";
// How much of a file is read to recognise a metabase.
constexpr std::size_t kHead = 4096;
// How many bytes of an archive's metabases are kept between finding and collecting; the rest is read again.
constexpr std::size_t kMostKept = std::size_t{256} * 1024 * 1024;
constexpr int kAttempts = 3;
// Consecutive unreadable entries after which an archive is given up.
constexpr int kMostFailures = 100;

// Whether a folder contains the file on every server and so does not identify one: its usual folders, and
// drives as they are shared or backed up.
bool isUsualFolder(const std::string& folder) {
  static const std::set<std::string, std::less<>> kHomes = {"inetsrv", "system32", "windows",
                                                            "winnt",   "history",  "metaback"};
  const std::string name = inventory::folded(folder);
  const bool isLetter = !name.empty() && name[0] >= 'a' && name[0] <= 'z';
  const bool isDrive =
      isLetter && (name.size() == 1 || (name.size() == 2 && (name[1] == '$' || name[1] == ':')));
  return isDrive || kHomes.contains(name);
}

// The server's name from a file's path below a folder or archive: that of the nearest folder that is not a
// usual one, or else the place's own.
std::string nameFor(std::string_view path, const std::string& place) {
  std::vector<std::string> folders;
  for (std::size_t slash = path.find('/'); slash != path.npos; slash = path.find('/')) {
    if (slash > 0) folders.emplace_back(path.substr(0, slash));
    path.remove_prefix(slash + 1);
  }
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    if (*folder != "." && *folder != ".." && !isUsualFolder(*folder)) return *folder;
  }
  return place;
}

// "WEB01" of WEB01.xml.gz.
std::string stemOf(const fs::path& file) {
  fs::path stem = file.filename();
  while (stem.has_extension() && stem.has_stem()) stem = stem.stem();
  return stem.string();
}

// The server's name from a file that was given as an argument.
std::string nameForFile(const fs::path& file) {
  const auto isUsual = [&](const fs::path& name) {
    return inventory::folded(name.string()) == inventory::folded(std::string(kMetabaseFile));
  };
  const bool usual = isUsual(file.filename()) || isUsual(file.filename().stem());
  return usual ? file.parent_path().filename().string() : file.stem().string();
}

std::string reasonOf(const std::system_error& error) {
  return error.code().message();
}

bool looksLikeMetabase(const fs::path& file) {
  return platform::metabase::looksLikeMetabase(os::readHead(file, kHead));
}

// Whether a file is a metabase by its content, or cannot be read.
bool mayBeMetabase(const fs::path& file) {
  try {
    return looksLikeMetabase(file);
  } catch (const std::system_error&) {
    return true;
  }
}

[[noreturn]] void failRead(const Source& source, const std::string& why) {
  platform::metabase::fail(platform::metabase::number::kFileReadFault, source.shown() + ": " + why);
}

[[noreturn]] void failLarge(const Source& source, std::uint64_t maxSize) {
  platform::metabase::fail(
      platform::metabase::number::kFileTooLarge,
      source.shown() + ": it is larger than " + std::to_string(maxSize) + " bytes (--max-size)");
}

// Collects the sources of all arguments.
class Finder {
 public:
  Finder(std::uint64_t maxSize, Sources::Names names)
      : maxSize_(maxSize), isAny_(names == Sources::Names::kAny) {}

  void add(const std::string& argument) {
    // An equals sign after a slash belongs to the path.
    const std::size_t equals = argument.find('=');
    const bool named = equals != std::string::npos && equals < argument.find('/');
    const std::string path = named ? argument.substr(equals + 1) : argument;
    const std::optional<std::string> name = named ? std::optional(argument.substr(0, equals)) : std::nullopt;
    if (path.empty()) throw UsageError("METABASE '" + argument + "': the path is empty");
    if (path == kStandardInput) return addStandardInput(argument, name);

    const fs::path whole = os::absolutePath(path);
    const std::size_t problems = sources_.problems.size();
    std::error_code ignored;
    const os::FileKind kind = os::statusOf(whole, ignored).kind;
    if (kind == os::FileKind::kDirectory) return addFound(argument, name, inFolder(whole), whole, problems);
    if (kind == os::FileKind::kStream) return addSource(argument, name, Source{Source::Kind::kStream, whole});
    if (kind == os::FileKind::kRegular && !mayBeMetabase(whole)) {
      if (auto found = inArchive(whole)) return addFound(argument, name, std::move(*found), whole, problems);
    }
    addSource(argument, name, Source{Source::Kind::kFile, whole});
  }

  Sources done() {
    chooseFound();
    return std::move(sources_);
  }

 private:
  struct Found {
    std::string name;
    Source source;
  };

  void addStandardInput(const std::string& argument, const std::optional<std::string>& name) {
    if (!name && !isAny_) throw UsageError("METABASE '-': put a name and '=' before it");
    if (std::exchange(hasStandardInput_, true)) {
      throw UsageError("METABASE '" + argument + "': the standard input can be read only once");
    }
    addSource(argument, name.value_or("input"), Source{Source::Kind::kStream, std::string(kStandardInput)});
  }

  void addSource(const std::string& argument, const std::optional<std::string>& given, Source source) {
    const std::string name = given ? *given : nameForFile(source.path);
    if (isAny_) {
      sources_.servers.push_back({name, std::move(source)});
      return;
    }
    if (const auto why = serverNameError(name)) {
      throw UsageError("METABASE '" + argument + "': '" + name + "' cannot be a server's name: " + *why +
                       " (put a name and '=' before the path)");
    }
    const auto [place, isNew] = explicit_.emplace(inventory::folded(name), sources_.servers.size());
    if (!isNew) {
      throw UsageError("METABASE '" + argument + "': the server " + name + " is given already, as " +
                       sources_.servers[place->second].source.shown());
    }
    sources_.servers.push_back({name, std::move(source)});
  }

  // `problems`: their number before the place was searched.
  void addFound(const std::string& argument, const std::optional<std::string>& name, std::vector<Found> found,
                const fs::path& place, std::size_t problems) {
    if (found.empty()) {
      if (sources_.problems.size() > problems) return;
      sources_.problems.push_back("no metabase in '" + place.string() + "'");
      return;
    }
    if (name) {
      if (found.size() > 1) {
        throw UsageError("METABASE '" + argument + "': NAME= needs exactly one metabase; found " +
                         std::to_string(found.size()));
      }
      return addSource(argument, name, std::move(found.front().source));
    }
    for (Found& each : found) {
      if (isAny_) {
        sources_.servers.push_back({std::move(each.name), std::move(each.source)});
        continue;
      }
      if (const auto why = serverNameError(each.name)) {
        sources_.problems.push_back(each.source.shown() + ": '" + each.name +
                                    "' cannot be a server's name: " + *why);
        continue;
      }
      found_.push_back(std::move(each));
    }
  }

  // Whether a file is a metabase by its content. One that cannot be read is a problem.
  bool isMetabase(const fs::path& file) {
    try {
      return looksLikeMetabase(file);
    } catch (const std::system_error& error) {
      sources_.problems.push_back(file.string() + ": it cannot be read: " + reasonOf(error));
      return false;
    }
  }

  std::vector<Found> inFolder(const fs::path& folder) {
    std::vector<Found> found;
    const std::string own = folder.filename().string();
    std::vector<fs::path> waiting{folder};
    while (!waiting.empty()) {
      const fs::path here = std::move(waiting.back());
      waiting.pop_back();
      std::error_code error;
      for (fs::directory_iterator entry(here, error), end; !error && entry != end; entry.increment(error)) {
        std::error_code failure;
        const os::FileStatus status = os::linkStatusOf(entry->path(), failure);
        if (failure && failure != std::errc::no_such_file_or_directory)
          sources_.problems.push_back(entry->path().string() +
                                      ": it cannot be examined: " + failure.message());
        if (status.kind == os::FileKind::kDirectory) waiting.push_back(entry->path());
        if (status.kind != os::FileKind::kRegular || !isMetabase(entry->path())) continue;
        Source source{Source::Kind::kFile, entry->path()};
        source.modified = status.modified;
        const std::string below = entry->path().lexically_relative(folder).generic_string();
        found.push_back({nameFor(below, own), std::move(source)});
      }
      if (error) sources_.problems.push_back(here.string() + ": it cannot be read: " + error.message());
    }
    std::sort(found.begin(), found.end(),
              [](const Found& left, const Found& right) { return left.source.path < right.source.path; });
    return found;
  }

  // Searches an archive; nothing for another file. If it changes meanwhile, searches it again, at most twice.
  std::optional<std::vector<Found>> inArchive(const fs::path& file) {
    const std::size_t problems = sources_.problems.size();
    const std::size_t noted = sources_.notes.size();
    const std::size_t kept = kept_;
    for (int attempt = 1;; ++attempt) {
      const auto stamp = os::stampOf(file);
      std::vector<Found> found;
      try {
        auto archive = Archive::open(file);
        if (!archive) return std::nullopt;
        found = inArchive(*archive, file);
      } catch (const ArchiveError& error) {
        sources_.problems.push_back(file.string() + ": the archive cannot be read: " + error.what());
      }
      if (stamp && os::stampOf(file) == stamp) {
        for (Found& each : found) each.source.archive = *stamp;
        return found;
      }
      sources_.problems.resize(problems);
      sources_.notes.resize(noted);
      kept_ = kept;
      if (attempt == kAttempts) {
        sources_.problems.push_back(file.string() + ": the archive keeps changing while it is being read");
        return std::vector<Found>();
      }
    }
  }

  std::vector<Found> inArchive(Archive& archive, const fs::path& file) {
    std::vector<Found> found;
    std::string name;
    int failures = 0;
    for (std::size_t member = 0; failures < kMostFailures; ++member) {
      name.clear();
      try {
        if (!archive.next()) break;
        failures = 0;
        name = archive.name();
        addMember(archive, Source{Source::Kind::kMember, file, member, name}, found);
      } catch (const ArchiveError& error) {
        const bool isOver = error.isOver() || ++failures == kMostFailures;
        sources_.problems.push_back(file.string() + (name.empty() ? "" : ":" + name) + ": " + error.what() +
                                    (isOver && !archive.isSingle() ? "; what follows was not read" : ""));
        if (isOver) break;
      }
    }
    return found;
  }

  // Adds a member if it is a metabase.
  void addMember(Archive& archive, Source source, std::vector<Found>& found) {
    const auto refuse = [&](const std::string& why) {
      sources_.problems.push_back(source.shown() + ": " + why);
    };
    if (archive.isLink()) refuse("it is a link to another member, which is not followed");
    if (!archive.isFile()) return;
    if (archive.isEncrypted()) return refuse("it is encrypted");
    auto bytes = std::make_shared<std::string>();
    bool more = archive.read(*bytes, kHead);
    if (!platform::metabase::looksLikeMetabase(*bytes)) return;
    if (more && maxSize_ > bytes->size()) more = archive.read(*bytes, maxSize_ - bytes->size());
    if (more && archive.read(*bytes, 1)) {
      return refuse("it is larger than " + std::to_string(maxSize_) + " bytes (--max-size)");
    }
    if (!archive.warning().empty()) sources_.notes.push_back(source.shown() + ": " + archive.warning());
    source.modified = archive.modified();
    if (kept_ + bytes->size() <= kMostKept) {
      kept_ += bytes->size();
      source.kept = std::move(bytes);
    }
    const std::string server = source.memberName.empty()
                                   ? nameForFile(source.path.parent_path() / source.path.stem())
                                   : nameFor(source.memberName, stemOf(source.path));
    found.push_back({server, std::move(source)});
  }

  // Of several files with the same server name, uses the one that was given as an argument, or else the
  // newest, or else the first by path.
  void chooseFound() {
    std::stable_sort(found_.begin(), found_.end(), [](const Found& left, const Found& right) {
      return left.source.modified > right.source.modified;
    });
    std::map<std::string, std::size_t> taken;
    std::vector<bool> isChosen(found_.size(), false);
    std::vector<std::size_t> inOrder;
    for (std::size_t at = 0; at < found_.size(); ++at) {
      const std::string key = inventory::folded(found_[at].name);
      if (const auto given = explicit_.find(key); given != explicit_.end()) {
        addIgnoredNote(found_[at], sources_.servers[given->second].source);
      } else if (const auto [first, isNew] = taken.emplace(key, at); !isNew) {
        addIgnoredNote(found_[at], found_[first->second].source);
      } else {
        inOrder.push_back(at);
      }
    }
    std::sort(inOrder.begin(), inOrder.end(), [&](std::size_t left, std::size_t right) {
      return inventory::folded(found_[left].name) < inventory::folded(found_[right].name);
    });
    for (const std::size_t at : inOrder) {
      sources_.servers.push_back({std::move(found_[at].name), std::move(found_[at].source)});
    }
  }

  void addIgnoredNote(const Found& passed, const Source& instead) {
    sources_.notes.push_back(passed.name + ": using " + instead.shown() + "; ignoring " +
                             passed.source.shown() + " (same server name)");
  }

  const std::uint64_t maxSize_;
  const bool isAny_;
  Sources sources_;
  std::map<std::string, std::size_t> explicit_;  // by folded name, the place in sources_.servers
  std::vector<Found> found_;
  std::size_t kept_ = 0;
  bool hasStandardInput_ = false;
};

FileBytes bytesOf(std::string_view text) {
  FileBytes bytes;
  bytes.bytes.reset(new char[text.size() + 1]);
  std::copy(text.begin(), text.end(), bytes.bytes.get());
  bytes.size = text.size();
  return bytes;
}

FileBytes readStream(const Source& source, std::uint64_t maxSize) {
  std::string text;
  try {
    os::readStream(source.path == kStandardInput ? fs::path() : source.path, [&](std::string_view piece) {
      text += piece;
      return text.size() <= maxSize;
    });
  } catch (const std::system_error& error) {
    failRead(source, "it cannot be read: " + reasonOf(error));
  }
  if (text.size() > maxSize) failLarge(source, maxSize);
  FileBytes bytes = bytesOf(text);
  bytes.stamp.seconds = std::time(nullptr);
  return bytes;
}

FileBytes readMember(const Source& source, std::uint64_t maxSize) {
  if (source.kept != nullptr) return bytesOf(*source.kept);
  const auto requireSame = [&] {
    if (hasChanged(source, source.archive))
      failRead(source, "the archive has changed since it was gone through");
  };
  requireSame();
  try {
    auto archive = Archive::open(source.path);
    for (std::size_t member = 0; archive; ++member) {
      try {
        if (!archive->next()) break;
      } catch (const ArchiveError& error) {
        if (error.isOver() || member >= source.member) throw;
        continue;
      }
      if (member < source.member) continue;
      std::string text;
      if (archive->read(text, maxSize) && archive->read(text, 1)) failLarge(source, maxSize);
      requireSame();
      return bytesOf(text);
    }
  } catch (const ArchiveError& error) {
    requireSame();
    failRead(source, error.what());
  }
  failRead(source, "it is no longer in the archive");
}

}  // namespace

std::string Source::shown() const {
  if (kind == Kind::kStream && path == kStandardInput) return "the standard input";
  return memberName.empty() ? path.string() : path.string() + ":" + memberName;
}

Sources findSources(const std::vector<std::string>& arguments, std::uint64_t maxSize, Sources::Names names) {
  Finder finder(maxSize, names);
  for (const std::string& argument : arguments) finder.add(argument);
  return finder.done();
}

FileBytes readSource(const Source& source, std::uint64_t maxSize) {
  if (source.kind == Source::Kind::kFile) return platform::metabase::readFile(source.path);
  if (source.kind == Source::Kind::kStream) return readStream(source, maxSize);
  FileBytes bytes = readMember(source, maxSize);
  bytes.stamp.seconds = source.modified;
  return bytes;
}

bool hasChanged(const Source& source, const os::FileStamp& stamp) {
  if (source.kind == Source::Kind::kStream) return false;
  return os::stampOf(source.path) != (source.kind == Source::Kind::kMember ? source.archive : stamp);
}

}  // namespace host
