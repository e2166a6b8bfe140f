#include "host/sources/source_choice.h"

#include <algorithm>
#include <utility>

#include <fmt/core.h>

#include "host/sources/server_name.h"
#include "host/usage_error.h"
#include "inventory/names.h"

namespace host {

void SourceChoice::addGiven(const std::string& argument, const std::string& name, Source source) {
  if (!isAny_) {
    if (const auto why = serverNameError(name)) {
      throw UsageError(fmt::format(
          "METABASE '{}': '{}' cannot be a server's name: {} (put a name and '=' before the path)", argument,
          name, *why));
    }
    const auto [place, isNew] = given_.emplace(inventory::folded(name), sources_.servers.size());
    if (!isNew) {
      throw UsageError(fmt::format("METABASE '{}': the server {} is given already, as {}", argument, name,
                                   sources_.servers[place->second].source.shown()));
    }
  }
  sources_.servers.push_back({name, std::move(source)});
}

void SourceChoice::addFound(std::vector<Candidate> found) {
  for (Candidate& each : found) {
    if (isAny_) {
      sources_.servers.push_back({std::move(each.name), std::move(each.source)});
    } else if (const auto why = serverNameError(each.name)) {
      addProblem(fmt::format("{}: '{}' cannot be a server's name: {}", each.source.shown(), each.name, *why));
    } else {
      found_.push_back(std::move(each));
    }
  }
}

Sources SourceChoice::finish() {
  std::ranges::stable_sort(found_, std::greater(),
                           [](const Candidate& each) { return each.source.modified; });
  std::map<std::string, std::size_t> chosen;
  for (std::size_t at = 0; at < found_.size(); ++at) {
    const std::string key = inventory::folded(found_[at].name);
    if (const auto given = given_.find(key); given != given_.end()) {
      addIgnoredNote(found_[at], sources_.servers[given->second].source);
    } else if (const auto [first, isNew] = chosen.emplace(key, at); !isNew) {
      addIgnoredNote(found_[at], found_[first->second].source);
    }
  }
  for (const auto& [key, at] : chosen) {
    sources_.servers.push_back({std::move(found_[at].name), std::move(found_[at].source)});
  }
  return std::move(sources_);
}

void SourceChoice::addIgnoredNote(const Candidate& ignored, const Source& used) {
  addNote(fmt::format("{}: using {}; ignoring {} (same server name)", ignored.name, used.shown(),
                      ignored.source.shown()));
}

}  // namespace host
