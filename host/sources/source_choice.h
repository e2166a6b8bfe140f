// Chooses one source for each server.
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "host/sources/search.h"
#include "host/sources/sources.h"

namespace host {

class SourceChoice {
 public:
  explicit SourceChoice(Sources::Names names) : isAny_(names == Sources::Names::kAny) {}

  // Adds the source that an argument names. Throws UsageError.
  void addGiven(const std::string& argument, const std::string& name, Source source);

  // Adds what was found below an argument. Throws UsageError if the argument gives a name, and there are
  // metabases that are not versions of one server.
  void addFound(const std::string& argument, const std::optional<std::string>& name, SearchResults results);

  // The servers: those of addGiven() in their order, then the others by name.
  Sources finish();

 private:
  struct Named {
    std::string name;
    std::string key;  // folded
    Candidate candidate;
    std::size_t place = kFound;  // of the argument that gives the name
  };

  static constexpr std::size_t kFound = std::numeric_limits<std::size_t>::max();

  // Throws UsageError for a name that no server can have or that another argument gives.
  void requireName(const std::string& argument, const std::string& name) const;
  void chooseAmong(std::vector<Named>::iterator first, std::vector<Named>::iterator last);

  const bool isAny_;
  Sources sources_;
  std::vector<Named> named_;
  std::vector<Named> chosen_;
};

}  // namespace host
