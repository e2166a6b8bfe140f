// The problems of a run, grouped by kind.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "host/console/output.h"
#include "inventory/inventory.h"

namespace host {

// Groups problems by routine, number and message, whatever node they concern.
class ProblemGroups {
 public:
  void add(const std::string& server, const inventory::Problem& problem);

  std::int64_t problems() const { return problems_; }
  std::int64_t notes() const { return notes_; }
  // Only servers with problems.
  const std::map<std::string, std::int64_t>& problemsByServer() const { return byServer_; }

  // Prints at most twenty groups of problems, the largest first, and then of notes. `width`: of a line.
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
