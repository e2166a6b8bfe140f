#include "host/sources/server_name.h"

#include <set>

#include "automation/text.h"
#include "inventory/names.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kMetabaseFile = "MetaBase.xml";
constexpr std::string_view kCopyStart = "metabase_";  // folded

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

// "WEB01.xml" of WEB01.xml.gz.
fs::path withoutCompression(const fs::path& file) {
  static const std::set<std::string, std::less<>> kExtensions = {".gz", ".bz2", ".xz", ".zst", ".lz4", ".z"};
  return kExtensions.contains(inventory::folded(file.extension().string())) ? file.stem() : file;
}

}  // namespace

std::optional<std::string> serverNameError(const std::string& name) {
  if (name.empty()) return "it is empty";
  if (automation::toUtf8(automation::fromUtf8(name)) != name) return "it is not UTF-8";
  if (name.front() == ' ' || name.back() == ' ') return "it begins or ends with a blank";
  for (const char c : name) {
    if (c == '/' || c == '\\') return "it contains a slash";
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return "it contains a control character";
  }
  return std::nullopt;
}

Location locate(std::string_view path, const std::string& place, const std::string& placeName) {
  Location location{place, placeName, {}};
  std::string folder;  // nearest one
  std::size_t begin = 0;
  for (std::size_t slash = path.find('/'); slash != path.npos; slash = path.find('/', begin)) {
    folder = path.substr(begin, slash - begin);
    begin = slash + 1;
    if (folder.empty() || folder == "." || folder == ".." || isUsualFolder(folder)) continue;
    location.home = place + "/" + std::string(path.substr(0, slash));
    location.homeName = folder;
  }
  const fs::path file(path.substr(begin));
  location.stem = stemOf(file);
  const std::string name = inventory::folded(withoutCompression(file).string());
  folder = inventory::folded(folder);
  const bool isInHistory = folder == "history" || folder == "metaback";
  const bool isMain = name == inventory::folded(kMetabaseFile);
  const bool isLonger = name.starts_with(kCopyStart) && name.ends_with(".xml");
  // The server numbers its copies: MetaBase_0000000012_0000000000.xml.
  const bool isNumbered =
      isLonger && name.find_first_not_of("0123456789_", kCopyStart.size()) == name.size() - 4;
  location.isCopy = isInHistory || isNumbered;
  location.isVersion = location.isCopy || isMain;
  location.hasUsualName = isMain || isLonger;
  return location;
}

std::string nameOfFile(const fs::path& file) {
  const Location location = locate(file.relative_path().generic_string(), "", "");
  if (location.isVersion && location.hasUsualName && !location.homeName.empty()) return location.homeName;
  const auto isUsual = [&](const fs::path& name) {
    return inventory::folded(name.string()) == inventory::folded(std::string(kMetabaseFile));
  };
  const bool usual = isUsual(file.filename()) || isUsual(file.filename().stem());
  return usual ? file.parent_path().filename().string() : file.stem().string();
}

std::string stemOf(const fs::path& file) {
  return withoutCompression(file.filename()).stem().string();
}

}  // namespace host
