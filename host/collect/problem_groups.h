// The problems of a run as a person wants to read them: those of one kind together.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "host/console/output.h"
#include "inventory/inventory.h"

namespace host {

// Problems of one routine, number and message, whatever node they are about.
class ProblemGroups {
 public:
  void add(const std::string& server, const inventory::Problem& problem);

  std::int64_t problems() const { return problems_; }
  std::int64_t notes() const { return notes_; }
  // Of each server that has problems.
  const std::map<std::string, std::int64_t>& problemsByServer() const { return byServer_; }

  // Prints the groups, those with the most problems first, at most twenty; notes behind them, if they are
  // wanted. `width` is how long a line may be.
  void print(Output& output, std::size_t width) const;

 private:
  using Key = std::tuple<bool, std::string, std::string, std::string>;  // note, routine, number, message
  struct Group {
    std::int64_t count = 0;
    std::string first;
    std::size_t order = 0;
  };

  std::map<Key, Group> groups_;
  std::map<std::string, std::int64_t> byServer_;
  std::int64_t problems_ = 0;
  std::int64_t notes_ = 0;
};

}  // namespace host
