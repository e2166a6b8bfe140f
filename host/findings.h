// What is worth a look on a server: rules, and what of an inventory each of them holds for.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/coverage.h"
#include "inventory/inventory.h"
#include "inventory/not_known.h"

namespace host {

struct Rule {
  std::string_view name;    // for the command line
  std::string_view title;   // what was found
  std::string_view why;     // one sentence on why it is worth a look
  std::string_view source;  // a public address that says so, or empty
};

std::span<const Rule> rules();

// A rule holds for something.
struct Finding {
  const Rule* rule = nullptr;
  std::string_view thing;  // "site", "directory", "pool", "extension" or "application"
  std::string name;
  std::vector<std::string> rows;  // that it rests on, as "tblHealth: Enable pinging = False"
};

// A rule couldn't be judged, for a server or for some of what it is about.
struct Unjudged {
  const Rule* rule = nullptr;
  std::string reason;
};

// Who is told of a judgement, in the order of the rules: of a rule's findings first. Nothing is kept.
struct Audience {
  std::function<void(Finding)> found;
  std::function<void(Unjudged)> notJudged;
};

// Judges one server by all the rules. No finding rests on a cell that isn't known.
void judge(inventory::Snapshot& snapshot, const std::string& server, const inventory::NotKnown& notKnown,
           const inventory::Coverage& coverage, const Audience& audience);

}  // namespace host
