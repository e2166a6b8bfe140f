#include "host/sources/search.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <fmt/core.h>

namespace host {

void SearchResults::addProblem(const std::string& file, std::string_view why) {
  problems.push_back(fmt::format("cannot read '{}': {}", file, why));
  others.push_back({file, {}, "not read"});
}

void SearchResults::addOther(const std::string& file, const Location& location, const std::string& what) {
  if (location.hasUsualName) return addProblem(file, "it is " + what);
  others.push_back({file, {}, what});
}

void SearchResults::add(SearchResults&& more) {
  std::ranges::move(more.found, std::back_inserter(found));
  std::ranges::move(more.notes, std::back_inserter(notes));
  std::ranges::move(more.problems, std::back_inserter(problems));
  std::ranges::move(more.others, std::back_inserter(others));
}

}  // namespace host
