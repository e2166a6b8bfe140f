#include "host/diff.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/color.h"
#include "host/listing.h"
#include "host/nearest.h"
#include "host/problem_groups.h"
#include "host/servers.h"
#include "host/terminal_text.h"
#include "inventory/coverage.h"
#include "inventory/names.h"
#include "inventory/not_known.h"
#include "inventory/tables.h"

namespace host {
namespace {

using inventory::ItemKind;
using Strings = std::vector<std::string>;

// What rows are about, and the tables that tell of it. The first of them names it.
struct Thing {
  std::string_view word;
  ItemKind kind;
  std::vector<std::string_view> key;  // the columns that identify it
  std::vector<std::string_view> tables;
};

const Thing kThings[] = {
    {"site",
     ItemKind::kSite,
     {inventory::kSiteColumn},
     {"tblFTPSiteInfo", "tblGeneral", "tblLogFileSetting", "tblExtendedLogSetting", "tblSecurityAccounts",
      "tblMessageSetting", "tblHomeDirectorySetting", "tblDirectorySecuritySetting"}},
    {"directory",
     ItemKind::kSite,
     {inventory::kPathColumn, "Directory name"},
     {"tblvirtualDirectory", "tblvirtualDirSecurity"}},
    {"pool",
     ItemKind::kPool,
     {inventory::kPoolColumn},
     {"tblAppPoolInfo", "tblGeneral", "tblWProcessRecycling", "tblMemoryRecycling", "tblPerformance",
      "tblHealth", "tblIdentity", "tblAppliedObject"}},
    {"extension", ItemKind::kNone, {"Web service extension"}, {"tblWSExtension"}},
};

// Columns of which a thing may have several values, a row for each: what belongs together is compared
// together.
struct Several {
  std::string_view table;
  std::vector<std::string_view> columns;
};

const Several kSeveral[] = {
    {"tblDirectorySecuritySetting", {"Granted IP Address (Subnet mask)"}},
    {"tblDirectorySecuritySetting", {"Denied IP Address (Subnet mask)"}},
    {"tblvirtualDirSecurity", {"Granted IP Address (Subnet mask)"}},
    {"tblvirtualDirSecurity", {"Denied IP Address (Subnet mask)"}},
    {"tblWProcessRecycling", {"Scheduled recycle at"}},
    {"tblWSExtension", {"Required files path", "File access"}},
    {"tblAppliedObject", {"Object name", "Object type", "IP address", "TCP port", "State", "Local path"}},
};

enum class Outcome { kDifferent, kOnlyOld, kOnlyNew, kNotKnown };

constexpr const char* kNotCollected = "not collected";

constexpr std::string_view kWords[] = {"different", "only in old", "only in new", "not known"};

struct Finding {
  std::string server;
  std::string_view thing;
  std::string name;
  std::string_view table;
  std::string column;
  Value old;
  Value other;
  Outcome outcome = Outcome::kDifferent;
};

// Values of a row, by the table's columns.
struct KeptRow {
  std::vector<Value> cells;
  inventory::NotKnownCells notKnown;
};
using KeptRows = std::vector<KeptRow>;

// One server in one database.
class Side {
 public:
  Side(inventory::Snapshot& snapshot, std::string server)
      : snapshot_(snapshot),
        server_(std::move(server)),
        tables_(snapshot.tableNames()),
        notKnown_(inventory::readNotKnown(snapshot, {server_})),
        coverage_(inventory::Coverage::read(snapshot, {server_})) {}

  const std::string& server() const { return server_; }

  // The rows of a table that are about one kind of thing, by what identifies it; `each` gets the keys in the
  // order of the rows.
  std::unordered_map<std::string, KeptRows> rowsOf(const Thing& thing, std::string_view name, Strings& keys) {
    std::unordered_map<std::string, KeptRows> found;
    if (std::ranges::find(tables_, name) == tables_.end()) return found;
    const std::size_t place = inventory::tableIndex(name);
    const inventory::Table& table = inventory::tables()[place];
    const auto rows = snapshot_.rowsOf(std::string(name), {server_});
    while (rows->next()) {
      const auto cell = [&](std::size_t column) { return rows->cell(column); };
      KeptRow row;
      std::string key;
      bool isAbout = true;
      for (const std::string_view column : thing.key) {
        const inventory::Cell value = cell(inventory::columnIndex(table, column));
        // In the table of two kinds the other one's column is empty.
        isAbout = isAbout && value && !value->empty();
        key += inventory::folded(normal(value.value_or(""))) + '\n';
      }
      if (!isAbout) continue;
      for (std::size_t column = 0; column < table.columns.size(); ++column) {
        const inventory::Cell value = cell(column);
        row.cells.push_back(value ? Value(std::string(*value)) : Value());
      }
      row.notKnown = notKnown_.of(place, cell);
      const auto [at, isNew] = found.try_emplace(key);
      if (isNew) keys.push_back(key);
      at->second.push_back(std::move(row));
    }
    return found;
  }

  // Whether anybody has looked for rows of a table.
  bool hasLookedAt(const Thing& thing, std::string_view table) const {
    return coverage_.hasSome(server_, table, thing.kind);
  }

  bool isCollected(const Thing& thing, std::string_view table, std::string_view item) const {
    return coverage_.has(server_, table, thing.kind, item);
  }
  bool hasFailed(std::string_view table, std::string_view item) const {
    return !notKnown_.whyMissing(server_, table, item).empty();
  }

  // Whether nothing stands of a thing, though there may be something.
  bool isUnknown(const Thing& thing, std::string_view table, std::string_view item) const {
    return !isCollected(thing, table, item) || hasFailed(table, item);
  }

  // A value without what of it begins with the server's name: two servers that are alike differ in that.
  std::string normal(std::string_view value) const {
    for (const std::string_view start : {"IIS://", "\\\\", ""}) {
      const std::string begin = std::string(start) + server_;
      if (value.size() <= begin.size() || !inventory::sameName(value.substr(0, begin.size()), begin))
        continue;
      const char next = value[begin.size()];
      if (next == '\\' || (next == '/' && !start.empty()))
        return std::string(start) + "." + std::string(value.substr(begin.size()));
    }
    // The accounts that a server makes for itself.
    for (const std::string_view start : {"IUSR_", "IWAM_"}) {
      if (inventory::sameName(value, std::string(start) + server_)) return std::string(start) + ".";
    }
    return std::string(value);
  }

 private:
  inventory::Snapshot& snapshot_;
  const std::string server_;
  const Strings tables_;
  const inventory::NotKnown notKnown_;
  const inventory::Coverage coverage_;
};

class Comparison {
 public:
  Comparison(Side& old, Side& other, const std::set<std::string>& ignored, std::vector<Finding>& findings)
      : old_(old), new_(other), ignored_(ignored), findings_(findings) {}

  void run() {
    for (const Thing& thing : kThings) compare(thing);
  }

 private:
  // What is known of a thing from the tables that were gone through.
  struct Known {
    std::size_t order = 0;
    std::string name;  // as it is shown
    std::string item;  // the site or pool that it belongs to
    bool inOld = false;
    bool inNew = false;
  };

  void compare(const Thing& thing) {
    thing_ = &thing;
    std::unordered_map<std::string, Known> known;
    Strings order;
    // What nobody has looked at on one side is told once.
    std::vector<std::string_view> tables;
    for (const std::string_view table : thing.tables) {
      const bool inOld = old_.hasLookedAt(thing, table), inNew = new_.hasLookedAt(thing, table);
      if (inOld && inNew) tables.push_back(table);
      if (inOld == inNew) continue;
      Finding& finding = findings_.emplace_back(findingOf({}, table, ""));
      (inOld ? finding.other : finding.old) = kNotCollected;
      finding.outcome = Outcome::kNotKnown;
    }
    const auto note = [&](Side& side, bool Known::*flag) {
      for (const std::string_view table : tables) {
        Strings keys;
        const auto rows = side.rowsOf(thing, table, keys);
        for (const std::string& key : keys) {
          const auto [at, isNew] = known.try_emplace(key);
          if (isNew) {
            at->second.order = order.size();
            order.push_back(key);
            describe(side, table, rows.at(key).front(), at->second);
          }
          at->second.*flag = true;
        }
      }
    };
    note(old_, &Known::inOld);
    note(new_, &Known::inNew);

    std::vector<std::vector<Finding>> byThing(order.size());
    for (const std::string& key : order) {
      const Known& about = known.at(key);
      if (about.inOld && about.inNew) continue;
      const Side& without = about.inOld ? new_ : old_;
      const bool isUnknown = without.isUnknown(thing, tables.front(), about.item);
      Finding finding = findingOf(about, "", "");
      finding.outcome = isUnknown ? Outcome::kNotKnown : about.inOld ? Outcome::kOnlyOld : Outcome::kOnlyNew;
      byThing[about.order].push_back(std::move(finding));
    }
    for (const std::string_view table : tables) {
      Strings keys, others;
      const auto before = old_.rowsOf(thing, table, keys), after = new_.rowsOf(thing, table, others);
      for (const std::string& key : order) {
        const Known& about = known.at(key);
        if (!about.inOld || !about.inNew) continue;
        const auto one = before.find(key), two = after.find(key);
        into_ = &byThing[about.order];
        compareRows(about, table, one == before.end() ? KeptRows() : one->second,
                    two == after.end() ? KeptRows() : two->second);
      }
    }
    for (std::vector<Finding>& ofOne : byThing) std::ranges::move(ofOne, std::back_inserter(findings_));
  }

  void describe(const Side& side, std::string_view name, const KeptRow& row, Known& known) const {
    const inventory::Table& table = inventory::tables()[inventory::tableIndex(name)];
    const auto value = [&](std::string_view column) {
      return inventory::hasColumn(table, column)
                 ? row.cells[inventory::columnIndex(table, column)].value_or("")
                 : std::string();
    };
    known.item = thing_->kind == ItemKind::kSite   ? value(inventory::kSiteColumn)
                 : thing_->kind == ItemKind::kPool ? value(inventory::kPoolColumn)
                                                   : "";
    if (thing_->word == "directory") {
      known.name = side.normal(value(inventory::kPathColumn)).substr(std::string_view("IIS://.").size()) +
                   "/" + value("Directory name");
    } else {
      known.name = value(thing_->key.front());
      const std::string title = value("FTP site name") + value("Description");
      if (!title.empty()) known.name += " (" + title + ")";
    }
  }

  Finding findingOf(const Known& about, std::string_view table, std::string_view column) const {
    Finding finding;
    finding.server = old_.server();
    finding.thing = thing_->word;
    finding.name = about.name;
    finding.table = table;
    finding.column = column;
    return finding;
  }

  bool isCompared(const inventory::Table& table, std::string_view column) const {
    if (column == inventory::kServerColumn || ignored_.contains(inventory::folded(column))) return false;
    // Names stand in every table, and are compared in the one that is of them.
    const bool isName = column == "FTP site name" || column == inventory::kPoolColumn ||
                        column == inventory::kSiteColumn || column == inventory::kPathColumn ||
                        column == "Directory name";
    return !isName || (table.name == thing_->tables.front() && column != inventory::kPathColumn);
  }

  void compareRows(const Known& about, std::string_view name, const KeptRows& before, const KeptRows& after) {
    const inventory::Table& table = inventory::tables()[inventory::tableIndex(name)];
    if (before.empty() || after.empty()) {
      if (before.empty() && after.empty()) {
        // Nothing on both sides is alike where it is known to be nothing.
        if (old_.hasFailed(name, about.item) || new_.hasFailed(name, about.item) ||
            old_.isCollected(*thing_, name, about.item) != new_.isCollected(*thing_, name, about.item)) {
          into_->push_back(findingOf(about, name, ""));
          into_->back().outcome = Outcome::kNotKnown;
        }
        return;
      }
      const Side& without = before.empty() ? old_ : new_;
      // A pool that serves nothing has no row.
      const bool isUnknown = without.isUnknown(*thing_, name, about.item);
      if (isUnknown || name != "tblAppliedObject") {
        Finding finding = findingOf(about, name, "");
        finding.outcome = isUnknown        ? Outcome::kNotKnown
                          : before.empty() ? Outcome::kOnlyNew
                                           : Outcome::kOnlyOld;
        into_->push_back(std::move(finding));
        return;
      }
    }
    std::vector<std::vector<std::size_t>> several;
    std::set<std::size_t> inSeveral;
    for (const Several& each : kSeveral) {
      if (each.table != name) continue;
      several.emplace_back();
      for (const std::string_view column : each.columns) {
        const std::size_t at = inventory::columnIndex(table, column);
        inSeveral.insert(at);
        if (isCompared(table, column)) several.back().push_back(at);
      }
    }
    std::vector<std::size_t> single;
    for (std::size_t at = 0; at < table.columns.size(); ++at) {
      if (!inSeveral.contains(at) && isCompared(table, table.columns[at])) single.push_back(at);
    }
    // Where rows of one thing differ in what a thing has once, there are two things of one name.
    if (!isOne(before, single, inSeveral.empty()) || !isOne(after, single, inSeveral.empty())) {
      for (const auto& columns : several) single.insert(single.end(), columns.begin(), columns.end());
      std::ranges::sort(single);
      compareSets(about, table, single, before, after);
      return;
    }
    std::erase_if(several, [](const auto& columns) { return columns.empty(); });
    const std::size_t told = into_->size();
    for (const std::size_t at : single) compareCells(about, table, at, before, after);
    for (const auto& columns : several) compareSets(about, table, columns, before, after);
    // A whole row is told once.
    const auto isUnknown = [](const Finding& finding) { return finding.outcome == Outcome::kNotKnown; };
    if (const std::size_t all = single.size() + several.size();
        all > 1 && into_->size() == told + all &&
        std::all_of(into_->end() - static_cast<std::ptrdiff_t>(all), into_->end(), isUnknown)) {
      into_->resize(told);
      into_->push_back(findingOf(about, name, ""));
      into_->back().outcome = Outcome::kNotKnown;
    }
  }

  static bool isOne(const KeptRows& rows, const std::vector<std::size_t>& columns, bool hasOneRow) {
    if (hasOneRow && rows.size() > 1) return false;
    return std::ranges::all_of(rows, [&](const KeptRow& row) {
      return std::ranges::all_of(columns,
                                 [&](std::size_t at) { return row.cells[at] == rows.front().cells[at]; });
    });
  }

  static bool isNotKnown(const KeptRows& rows, std::size_t column) {
    return std::ranges::any_of(rows, [&](const KeptRow& row) { return row.notKnown.has(column); });
  }

  void compareCells(const Known& about, const inventory::Table& table, std::size_t at, const KeptRows& before,
                    const KeptRows& after) {
    if (before.empty() || after.empty()) return;
    const Value &one = before.front().cells[at], &two = after.front().cells[at];
    const bool oldUnknown = isNotKnown(before, at), newUnknown = isNotKnown(after, at);
    const auto normal = [](const Side& side, const Value& value) {
      return value ? Value(side.normal(*value)) : Value();
    };
    if (!oldUnknown && !newUnknown && (one == two || normal(old_, one) == normal(new_, two))) return;
    Finding finding = findingOf(about, table.name, table.columns[at]);
    finding.old = oldUnknown ? Value(std::string(kNotKnownText)) : one;
    finding.other = newUnknown ? Value(std::string(kNotKnownText)) : two;
    if (oldUnknown || newUnknown) finding.outcome = Outcome::kNotKnown;
    into_->push_back(std::move(finding));
  }

  // Each value as often as it stands on one side and not on the other.
  void compareSets(const Known& about, const inventory::Table& table, const std::vector<std::size_t>& columns,
                   const KeptRows& before, const KeptRows& after) {
    std::string title;
    for (const std::size_t at : columns)
      title += (title.empty() ? "" : ", ") + std::string(table.columns[at]);
    const bool oldUnknown =
        std::ranges::any_of(columns, [&](std::size_t at) { return isNotKnown(before, at); });
    const bool newUnknown =
        std::ranges::any_of(columns, [&](std::size_t at) { return isNotKnown(after, at); });
    if (oldUnknown || newUnknown) {
      Finding finding = findingOf(about, table.name, title);
      if (oldUnknown) finding.old = std::string(kNotKnownText);
      if (newUnknown) finding.other = std::string(kNotKnownText);
      finding.outcome = Outcome::kNotKnown;
      into_->push_back(std::move(finding));
      return;
    }
    std::array<std::vector<const KeptRow*>, 2> left;
    const auto gather = [&](const KeptRows& rows, std::size_t which) {
      for (const KeptRow& row : rows) {
        // One without any is there for another column.
        if (std::ranges::any_of(columns, [&](std::size_t at) { return !row.cells[at].value_or("").empty(); }))
          left[which].push_back(&row);
      }
    };
    gather(before, 0);
    gather(after, 1);
    // First what is the same as it stands, then what is so but for the servers' names.
    for (const bool asItStands : {true, false}) {
      std::map<std::vector<Value>, std::array<std::vector<const KeptRow*>, 2>> values;
      for (const std::size_t which : {0U, 1U}) {
        const Side& side = which == 0 ? old_ : new_;
        for (const KeptRow* row : std::exchange(left[which], {})) {
          std::vector<Value> value;
          for (const std::size_t at : columns) {
            const Value& cell = row->cells[at];
            value.push_back(cell && !asItStands ? Value(side.normal(*cell)) : cell);
          }
          values[std::move(value)][which].push_back(row);
        }
      }
      for (const auto& [value, rows] : values) {
        const auto both = static_cast<std::ptrdiff_t>(std::min(rows[0].size(), rows[1].size()));
        for (const std::size_t which : {0U, 1U})
          left[which].insert(left[which].end(), rows[which].begin() + both, rows[which].end());
      }
    }
    for (const std::size_t which : {0U, 1U}) {
      for (const KeptRow* row : left[which]) {
        Finding finding = findingOf(about, table.name, title);
        std::string text;
        for (const std::size_t column : columns) {
          text += (column == columns.front() ? "" : ", ") + row->cells[column].value_or("-");
        }
        (which == 0 ? finding.old : finding.other) = std::move(text);
        finding.outcome = which == 0 ? Outcome::kOnlyOld : Outcome::kOnlyNew;
        into_->push_back(std::move(finding));
      }
    }
  }

  Side& old_;
  Side& new_;
  const std::set<std::string>& ignored_;
  std::vector<Finding>& findings_;
  const Thing* thing_ = nullptr;
  std::vector<Finding>* into_ = nullptr;
};

// The columns to leave out, folded.
std::set<std::string> ignoredOf(const Strings& names) {
  Strings all;
  for (const inventory::Table& table : inventory::tables()) {
    for (const std::string_view column : table.columns) all.emplace_back(column);
  }
  std::set<std::string> ignored;
  for (const std::string& name : names) {
    if (std::ranges::none_of(all,
                             [&](const std::string& column) { return inventory::sameName(column, name); }))
      throw UsageError("--ignore: no table has a column '" + name + "'" + didYouMean(name, all));
    ignored.insert(inventory::folded(name));
  }
  return ignored;
}

std::vector<Finding> findingsOf(const DiffOptions& options) {
  const std::set<std::string> ignored = ignoredOf(options.ignored);
  const auto old = inventory::openForReading(options.old, options.access);
  const auto oldSnapshot = old->snapshot();
  std::vector<Finding> findings;
  if (!options.against.empty()) {
    Side one(*oldSnapshot, chosenServer(*oldSnapshot, options.server));
    Side two(*oldSnapshot, chosenServer(*oldSnapshot, options.against));
    Comparison(one, two, ignored, findings).run();
    return findings;
  }
  const auto other = inventory::openForReading(options.other, options.access);
  const auto newSnapshot = other->snapshot();
  const Strings names = options.server.empty() ? Strings() : Strings{options.server};
  const auto chosen = [&](inventory::Snapshot& snapshot) {
    Strings found = chosenServers(snapshot, {});
    std::erase_if(found, [&](const std::string& server) {
      return !names.empty() && !inventory::sameName(server, names.front());
    });
    return found;
  };
  const Strings before = chosen(*oldSnapshot), after = chosen(*newSnapshot);
  if (before.empty() && after.empty() && !names.empty())
    static_cast<void>(chosenServers(*newSnapshot, names));
  const auto missing = [&](const std::string& server, Outcome outcome) {
    Finding& finding = findings.emplace_back();
    finding.server = finding.name = server;
    finding.thing = "server";
    finding.outcome = outcome;
  };
  for (const std::string& server : before) {
    const auto same = std::ranges::find_if(
        after, [&](const std::string& name) { return inventory::sameName(name, server); });
    if (same == after.end()) {
      missing(server, Outcome::kOnlyOld);
      continue;
    }
    Side one(*oldSnapshot, server), two(*newSnapshot, *same);
    Comparison(one, two, ignored, findings).run();
  }
  for (const std::string& server : after) {
    if (std::ranges::none_of(before,
                             [&](const std::string& name) { return inventory::sameName(name, server); }))
      missing(server, Outcome::kOnlyNew);
  }
  return findings;
}

std::string_view wordFor(Outcome outcome) {
  return kWords[static_cast<std::size_t>(outcome)];
}

// Writes a line, on a terminal in as many as it takes. One that tells what isn't known is coloured.
void writeLine(std::size_t indent, const std::string& text, bool isKnown, Output& output) {
  const bool onTerminal = ::isatty(STDOUT_FILENO) != 0;
  const std::size_t room = onTerminal ? std::max<std::size_t>(40, terminalColumns(STDOUT_FILENO)) : text.npos;
  std::size_t lead = indent;
  for (const std::string& line : wrapToWidth(harmless(text), room - indent - 2)) {
    output.write(std::string(lead, ' ') + (isKnown ? line : colored(line, Ink::kNotice, STDOUT_FILENO)) +
                 "\n");
    lead = indent + 2;
  }
}

// For people: what a difference is about once, and its differences below.
void printForPeople(const DiffOptions& options, const std::vector<Finding>& findings, Output& output) {
  const bool inOne = !options.against.empty();
  const std::string inOld = inOne ? "on " + options.server : "in old";
  const std::string inNew = inOne ? "on " + options.against : "in new";
  const auto wordsFor = [&](Outcome outcome) {
    return outcome == Outcome::kNotKnown  ? std::string(kNotKnownText)
           : outcome == Outcome::kOnlyOld ? "only " + inOld
                                          : "only " + inNew;
  };
  const auto shown = [](const Value& value) {
    return !value ? "-" : *value == kNotKnownText ? *value : "'" + *value + "'";
  };
  std::string server, about;
  std::int64_t differences = 0, unknown = 0;
  for (const Finding& finding : findings) {
    const bool isKnown = finding.outcome != Outcome::kNotKnown;
    ++(isKnown ? differences : unknown);
    if (finding.server != server) {
      output.write(server.empty() ? "" : "\n");
      writeLine(0, finding.server + (inOne ? " -> " + options.against : ""), true, output);
      server = finding.server;
      about.clear();
    }
    const std::string now = finding.name.empty() ? "every " + std::string(finding.thing)
                                                 : std::string(finding.thing) + " " + finding.name;
    const bool isWhole = finding.table.empty();
    if (now != about) {
      writeLine(2, now + (isWhole ? ": " + wordsFor(finding.outcome) : ""), isKnown || !isWhole, output);
      about = now;
    }
    if (isWhole) continue;
    std::string line(finding.table);
    if (!finding.column.empty()) line += ", " + finding.column;
    line += ": ";
    if (finding.column.empty()) {
      line += wordsFor(finding.outcome);
      if (!isKnown && (finding.old || finding.other))
        line += std::string(", ") + kNotCollected + " " + (finding.old ? inOld : inNew);
    } else if (finding.outcome == Outcome::kOnlyOld || finding.outcome == Outcome::kOnlyNew) {
      line += wordsFor(finding.outcome) + ": " +
              shown(finding.outcome == Outcome::kOnlyOld ? finding.old : finding.other);
    } else {
      line += shown(finding.old) + " -> " + shown(finding.other);
    }
    writeLine(4, line, isKnown, output);
  }
  if (!findings.empty()) output.write("\n");
  output.write(differences == 0 ? "no differences" : counted(differences, "difference", "differences"));
  if (unknown > 0) output.write(", " + std::to_string(unknown) + " not known");
  output.write("\n");
}

}  // namespace

int diff(const DiffOptions& options, Output& output) {
  const auto findings = [&] {
    try {
      return findingsOf(options);
    } catch (const inventory::Unreachable&) {
      // Once more, as a whole.
      return findingsOf(options);
    }
  }();
  const auto isDifference = [](const Finding& finding) { return finding.outcome != Outcome::kNotKnown; };
  return printed(output, std::ranges::any_of(findings, isDifference) ? 1 : 0, [&] {
    if (options.format == Format::kTable) {
      printForPeople(options, findings, output);
      return;
    }
    Listing listing{{{"Server"}, {"Thing"}, {"Name"}, {"Table"}, {"Column"}, {"Old"}, {"New"}, {"Result"}},
                    {}};
    listing.forEachRow = [&](const std::function<void(const Row&)>& each) {
      for (const Finding& finding : findings) {
        each({finding.server, std::string(finding.thing), finding.name, std::string(finding.table),
              finding.column, finding.old, finding.other, std::string(wordFor(finding.outcome))});
      }
    };
    print(listing, {options.format}, output);
  });
}

}  // namespace host
