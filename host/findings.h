// Rules about servers, and what of a collection each of them holds for.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/server_data.h"

namespace host {

struct Rule {
  std::string_view name;    // for the command line
  std::string_view title;   // what was found
  std::string_view why;     // one sentence on why it matters
  std::string_view source;  // a public address that says so, or empty
};

std::span<const Rule> rules();

// A rule holds for an object.
struct Finding {
  const Rule* rule = nullptr;
  std::string_view kind;              // "site", "directory", "pool", "extension" or "application"
  std::string name;                   // of the object
  std::int64_t object = 0;            // its id, or that of a row that belongs to no object
  std::vector<std::string> evidence;  // as "tblHealth: Enable pinging = False"
};

// A rule could not be evaluated for a server, or for some of its objects.
struct Unevaluated {
  const Rule* rule = nullptr;
  std::string reason;
};

// Receives the results in the order of the rules, of each rule its findings first.
struct FindingSink {
  std::function<void(Finding)> found;
  std::function<void(Unevaluated)> notEvaluated;
};

// Evaluates all rules for one server. No finding is based on an unknown cell.
void evaluateRules(const inventory::ServerData& data, const FindingSink& sink);

}  // namespace host
