// Problems grouped by cause.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "host/console/output.h"
#include "inventory/inventory.h"

namespace host {

// The records of one cause, such as one bad value: alike in number and message, whatever node and routine
// they concern, and the records of steps that failed because of it.
struct ProblemGroup {
  static constexpr std::size_t kMostPlaces = 20;

  std::int64_t count = 0;
  bool isNote = false;
  std::string number;                 // hexadecimal; empty if there is none
  std::string message;                // without node and line
  std::vector<std::string> places;    // the first ones that differ: node or item, and line
  std::vector<std::string> routines;  // empty for the program itself
  std::size_t order = 0;
};

class ProblemGroups {
 public:
  // The problems of a server must be added in their order.
  void add(const std::string& server, const inventory::Problem& problem);
  // Adds all groups of one server.
  void add(const std::string& server, const ProblemGroups& groups);

  // The number of records.
  std::int64_t problems() const { return problems_; }
  std::int64_t notes() const { return notes_; }
  // Only servers with problems.
  const std::map<std::string, std::int64_t>& problemsByServer() const { return byServer_; }

  // The groups of problems or of notes, the largest first.
  std::vector<ProblemGroup> sorted(bool notes) const;

  // Such as "2 problems in 5 places"; empty if there are none.
  std::string counted() const;

  // Prints at most twenty groups of problems and then of notes. `width`: of a line.
  void print(Output& output, std::size_t width) const;

 private:
  using Key = std::tuple<bool, std::string, std::string>;  // note, number, message

  ProblemGroup& merge(ProblemGroup group);

  std::map<Key, ProblemGroup> groups_;
  std::map<std::string, std::int64_t> byServer_;
  std::int64_t problems_ = 0;
  std::int64_t notes_ = 0;
  // The last cause, and its node and routine.
  Key cause_;
  std::string causeNode_;
  std::string causeRoutine_;
};

}  // namespace host
