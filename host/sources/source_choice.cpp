#include "host/sources/source_choice.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <utility>

#include <fmt/core.h>

#include "host/sources/server_name.h"
#include "host/usage_error.h"
#include "inventory/clock.h"
#include "inventory/names.h"

namespace host {
namespace {

// A source in messages about a choice, with its time.
std::string described(const Source& source) {
  if (source.modified == 0) return fmt::format("'{}'", source.shown());
  const std::string time = inventory::utc(std::chrono::sys_seconds(std::chrono::seconds(source.modified)));
  return fmt::format("'{}' of {}Z", source.shown(), time.substr(0, time.find('.')));
}

bool areVersions(const Candidate& left, const Candidate& right) {
  return left.location.isVersion && right.location.isVersion && left.location.home == right.location.home;
}

// The same for files that arguments name. They must exist, have the names that the server gives them, and
// not both be MetaBase.xml.
bool areGivenVersions(const Candidate& left, const Candidate& right) {
  const auto isOne = [](const Candidate& each) {
    return each.location.hasUsualName && each.source.modified != 0;
  };
  const bool isAnyCopy = left.location.isCopy || right.location.isCopy;
  return isAnyCopy && isOne(left) && isOne(right) && areVersions(left, right);
}

// The names of what was found below an argument.
std::vector<std::string> namesOf(const std::vector<Candidate>& found) {
  struct Home {
    std::size_t others = 0;
    bool hasVersions = false;
  };
  std::map<std::string, Home> homes;
  for (const auto& [source, location] : found) {
    Home& home = homes[location.home];
    location.isVersion ? static_cast<void>(home.hasVersions = true) : static_cast<void>(++home.others);
  }
  std::vector<std::string> names;
  for (const auto& [source, location] : found) {
    const Home& home = homes[location.home];
    const bool isAlone = home.others + (home.hasVersions ? 1U : 0U) == 1;
    names.push_back(location.isVersion || isAlone ? location.homeName : location.stem);
  }
  return names;
}

}  // namespace

void SourceChoice::addGiven(const std::string& argument, const std::string& name, Source source) {
  Location location = locate(source.path.relative_path().generic_string(), "", "");
  Candidate candidate{std::move(source), std::move(location)};
  const auto first = std::ranges::find_if(named_, [&](const Named& other) {
    return other.place != kFound && inventory::sameName(other.name, name) &&
           areGivenVersions(other.candidate, candidate);
  });
  if (first == named_.end()) requireName(argument, name);
  const std::size_t place = first == named_.end() ? named_.size() : first->place;
  named_.push_back({name, inventory::folded(name), std::move(candidate), place});
}

void SourceChoice::addFound(const std::string& argument, const std::optional<std::string>& name,
                            SearchResults results) {
  std::ranges::move(results.problems, std::back_inserter(sources_.problems));
  std::ranges::move(results.notes, std::back_inserter(sources_.notes));
  std::ranges::move(results.others, std::back_inserter(sources_.files));
  std::vector<Candidate>& found = results.found;
  if (name && !found.empty()) {
    requireName(argument, *name);
    const bool isOne = found.size() == 1 || std::ranges::all_of(found, [&](const Candidate& each) {
                         return areVersions(found.front(), each);
                       });
    if (!isOne) {
      throw UsageError(
          fmt::format("METABASE '{}': NAME= needs exactly one metabase; found {}", argument, found.size()));
    }
  }
  const std::vector<std::string> names = name ? std::vector(found.size(), *name) : namesOf(found);
  const std::size_t place = name ? named_.size() : kFound;
  for (std::size_t at = 0; at < names.size(); ++at) {
    if (const auto why = isAny_ ? std::nullopt : serverNameError(names[at])) {
      const std::string file = found[at].source.shown();
      sources_.problems.push_back(
          fmt::format("cannot collect '{}': '{}' cannot be a server's name: {}", file, names[at], *why));
      sources_.files.push_back({file, names[at], "not collected"});
      continue;
    }
    named_.push_back({names[at], inventory::folded(names[at]), std::move(found[at]), place});
  }
}

void SourceChoice::requireName(const std::string& argument, const std::string& name) const {
  if (isAny_) return;
  if (const auto why = serverNameError(name)) {
    throw UsageError(
        fmt::format("METABASE '{}': '{}' cannot be a server's name: {} (put a name and '=' before the path)",
                    argument, name, *why));
  }
  for (const Named& other : named_) {
    if (other.place == kFound || !inventory::sameName(other.name, name)) continue;
    throw UsageError(fmt::format("METABASE '{}': the server {} is given already, as {}", argument, name,
                                 other.candidate.source.shown()));
  }
}

Sources SourceChoice::finish() {
  if (isAny_) {
    chosen_ = std::move(named_);
  } else {
    // Those of one name follow each other, the one to use first.
    std::ranges::stable_sort(named_, [](const Named& left, const Named& right) {
      const Source& a = left.candidate.source;
      const Source& b = right.candidate.source;
      if (left.key != right.key) return left.key < right.key;
      if (left.place != right.place) return left.place < right.place;
      if (a.modified != b.modified) return a.modified > b.modified;
      // The server saves both at once.
      const bool isCopy = left.candidate.location.isCopy;
      return isCopy != right.candidate.location.isCopy ? !isCopy : a.path < b.path;
    });
    for (auto first = named_.begin(); first != named_.end();) {
      const auto last =
          std::find_if(first, named_.end(), [&](const Named& other) { return other.key != first->key; });
      chooseAmong(first, last);
      first = last;
    }
    std::ranges::stable_sort(chosen_, {}, &Named::place);
  }
  for (Named& named : chosen_) {
    sources_.files.push_back({named.candidate.source.shown(), named.name, "collected"});
    sources_.servers.push_back({std::move(named.name), std::move(named.candidate.source)});
  }
  std::ranges::sort(sources_.files, {}, &ListedFile::file);
  return std::move(sources_);
}

// Uses the first of several sources with one name.
void SourceChoice::chooseAmong(std::vector<Named>::iterator first, std::vector<Named>::iterator last) {
  const Source& used = first->candidate.source;
  std::string newest;
  std::size_t versions = 0;
  for (auto other = std::next(first); other != last; ++other) {
    const Source& source = other->candidate.source;
    // Found below another argument, too.
    if (source.shown() == used.shown() && source.members == used.members) continue;
    const bool isVersion = areVersions(first->candidate, other->candidate);
    sources_.files.push_back({source.shown(), other->name, isVersion ? "older version" : "not collected"});
    if (!isVersion) {
      sources_.problems.push_back(
          fmt::format("several sources are called '{}': using {}, ignoring {} (put a "
                      "name and '=' before one of them)",
                      first->name, described(used), described(source)));
    } else if (versions++ == 0) {
      newest = described(source);
    }
  }
  if (versions > 0) {
    sources_.notes.push_back(
        fmt::format("{}: using {}; ignoring {}{}", first->name, described(used), newest,
                    versions > 1 ? fmt::format(" and {} older", versions - 1) : std::string()));
  }
  chosen_.push_back(std::move(*first));
}

}  // namespace host
