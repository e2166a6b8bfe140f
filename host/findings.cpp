#include "host/findings.h"

#include <algorithm>
#include <cctype>
#include <unordered_map>
#include <unordered_set>

#include "inventory/names.h"
#include "inventory/tables.h"

namespace host {
namespace {

using inventory::ItemKind;
using Columns = std::vector<std::string_view>;

constexpr std::size_t kMostNames = 5;  // of things that a rule couldn't be judged for

// A row under a rule's eyes. What of it isn't known makes the verdict unknown.
class RowView {
 public:
  RowView(const inventory::Table& table, inventory::Rows& rows, const inventory::NotKnownCells& notKnown)
      : table_(table), rows_(rows), notKnown_(notKnown) {}

  std::string_view at(std::string_view column) const {
    const std::size_t place = inventory::columnIndex(table_, column);
    if (place == table_.columns.size()) return {};
    if (notKnown_.has(place)) isUnknown_ = true;
    return rows_.cell(place).value_or("");
  }
  bool is(std::string_view column, std::string_view text) const {
    return inventory::sameName(at(column), text);
  }
  bool isUnknown() const { return isUnknown_; }

  // As evidence shows it, which doesn't decide anything.
  std::string_view shown(std::string_view column) const {
    const std::size_t place = inventory::columnIndex(table_, column);
    return notKnown_.has(place) ? "not known" : rows_.cell(place).value_or("");
  }

  const inventory::Table& table() const { return table_; }

 private:
  const inventory::Table& table_;
  inventory::Rows& rows_;
  const inventory::NotKnownCells& notKnown_;
  mutable bool isUnknown_ = false;
};

// Where a rule looks: rows of a table, and the columns that tell.
struct Look {
  std::string_view table;
  ItemKind kind;
  Columns columns;
  bool (*holds)(const RowView& row);
};

// A rule holds for a thing where each of its conditions does, by one of the places to look.
struct Judge {
  Rule rule;
  std::string_view thing;  // empty: what the row is about
  std::vector<std::vector<Look>> conditions;
  std::string_view without;  // and where this table has no row of it
};

constexpr ItemKind kSite = ItemKind::kSite;
constexpr ItemKind kPool = ItemKind::kPool;

const Look kAnonymous = {
    "tblSecurityAccounts", kSite, {"Allow Anonymous Connections", "User name"}, [](const RowView& row) {
      return row.is("Allow Anonymous Connections", "Yes");
    }};

bool isOnShare(std::string_view path) {
  return path.starts_with("\\\\");
}

bool isOnOtherDrive(std::string_view path) {
  return path.size() >= 2 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0])) != 0 &&
         path[0] != 'C' && path[0] != 'c';
}

// Everywhere that content is: home directories, virtual ones, and web applications.
std::vector<Look> contentWhere(bool (*holds)(const RowView&), bool (*holdsForApplication)(const RowView&)) {
  return {{"tblHomeDirectorySetting", kSite, {"Path"}, holds},
          {"tblvirtualDirectory", kSite, {"Path"}, holds},
          {"tblAppliedObject", kPool, {"Local path"}, holdsForApplication}};
}

const std::vector<Judge>& judges() {
  static const std::vector<Judge> kJudges = {
      {{"anonymous-write", "Anonymous users may write",
        "Whoever finds the site can leave files on it, and fill its disk or use it to pass them on.", ""},
       "site",
       {{kAnonymous},
        {{"tblHomeDirectorySetting",
          kSite,
          {"Path", "Write"},
          [](const RowView& row) { return row.is("Write", "Yes"); }},
         {"tblvirtualDirectory",
          kSite,
          {"IISPath", "Directory name", "Path", "Write"},
          [](const RowView& row) { return row.is("Write", "Yes"); }}}},
       ""},
      {{"anonymous-from-anywhere", "Anonymous access without any IP restriction",
        "Nothing limits from where the site can be reached without a name and a password.", ""},
       "site",
       {{kAnonymous},
        {{"tblDirectorySecuritySetting",
          kSite,
          {"All computer access"},
          [](const RowView& row) {
            const bool isListed = !row.at("Granted IP Address (Subnet mask)").empty() ||
                                  !row.at("Denied IP Address (Subnet mask)").empty();
            return row.is("All computer access", "Granted") && !isListed;
          }}}},
       ""},
      {{"pool-local-system", "Application pool under LocalSystem",
        "An application that is taken over has the rights of the whole machine.",
        "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/"
        "cc780343(v=ws.10)"},
       "pool",
       {{{"tblIdentity",
          kPool,
          {"Application pool identity settings", "Security account"},
          [](const RowView& row) { return row.is("Security account", "Local System"); }}}},
       ""},
      {{"pool-no-pinging", "Pinging of worker processes is off",
        "A worker process that hangs isn't noticed and isn't replaced.",
        "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/"
        "cc780042(v=ws.10)"},
       "pool",
       {{{"tblHealth",
          kPool,
          {"Enable pinging"},
          [](const RowView& row) { return row.is("Enable pinging", "False"); }}}},
       ""},
      {{"pool-no-rapid-fail", "Rapid-fail protection is off",
        "A worker process that keeps failing is started again and again, at the cost of the others.",
        "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/"
        "cc779127(v=ws.10)"},
       "pool",
       {{{"tblHealth",
          kPool,
          {"Enable rapid-fail protection"},
          [](const RowView& row) { return row.is("Enable rapid-fail protection", "False"); }}}},
       ""},
      {{"logging-off", "Logging is off", "What was done on the site can't be found out afterwards.", ""},
       "site",
       {{{"tblLogFileSetting",
          kSite,
          {"Enable Logging"},
          [](const RowView& row) { return row.is("Enable Logging", "No"); }},
         {"tblHomeDirectorySetting",
          kSite,
          {"Path", "Log visits"},
          [](const RowView& row) { return row.is("Log visits", "No"); }}}},
       ""},
      {{"unknown-extensions-allowed", "Unknown CGI or ISAPI extensions are allowed",
        "Any program that gets into a directory with execute permission runs.",
        "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2008-r2-and-2008/"
        "cc753816(v=ws.10)"},
       "extension",
       {{{"tblWSExtension",
          ItemKind::kNone,
          {"Description", "Status"},
          [](const RowView& row) {
            return (row.is("Description", "All Unknown CGI Extensions") ||
                    row.is("Description", "All Unknown ISAPI Extensions")) &&
                   row.is("Status", "Allowed");
          }}}},
       ""},
      {{"network-share", "Content on a network share",
        "The other machine, its share and the account that reaches it have to move along, or stay.", ""},
       "",
       {contentWhere([](const RowView& row) { return isOnShare(row.at("Path")); },
                     [](const RowView& row) { return isOnShare(row.at("Local path")); })},
       ""},
      {{"other-drive", "Content on another drive than C:",
        "The new machine needs a drive of that letter, or another path.", ""},
       "",
       {contentWhere([](const RowView& row) { return isOnOtherDrive(row.at("Path")); },
                     [](const RowView& row) { return isOnOtherDrive(row.at("Local path")); })},
       ""},
      {{"named-account", "A named account is used",
        "The account and its password have to be there after a migration too.",
        "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/"
        "cc781986(v=ws.10)"},
       "",
       {{{"tblIdentity",
          kPool,
          {"Security account"},
          [](const RowView& row) {
            return row.is("Application pool identity settings", "Configurable") &&
                   !row.at("Security account").empty();
          }},
         {"tblSecurityAccounts",
          kSite,
          {"Allow Anonymous Connections", "User name"},
          [](const RowView& row) {
            const std::string name = inventory::folded(row.at("User name"));
            return row.is("Allow Anonymous Connections", "Yes") && !name.empty() &&
                   !name.starts_with("iusr_");
          }},
         {"tblLogFileSetting",
          kSite,
          {"Enable Logging", "ODBC Data Source Name (DSN)", "ODBC User name"},
          [](const RowView& row) {
            return row.is("Enable Logging", "Yes") && !row.at("ODBC User name").empty();
          }}}},
       ""},
      {{"stopped", "A site or pool is stopped",
        "Either it is no longer needed and can go, or somebody is missing it.", ""},
       "",
       {{{"tblGeneral", kSite, {"State"}, [](const RowView& row) { return row.is("State", "Stopped"); }},
         {"tblGeneral", kPool, {"State"}, [](const RowView& row) { return row.is("State", "Stopped"); }}}},
       ""},
      {{"pool-serves-nothing", "A pool serves nothing", "No application is assigned to it: it can go.", ""},
       "pool",
       {{{"tblAppPoolInfo", kPool, {"Application pool name"}, [](const RowView&) { return true; }}}},
       "tblAppliedObject"}};
  return kJudges;
}

enum class Answer : unsigned char { kNo, kUnknown, kYes };

// What the conditions have said of a thing so far.
struct Standing {
  std::string_view thing;
  std::string name;
  std::vector<Answer> answers;
  std::vector<std::string> rows;
};

// A directory or an application has a row of its own: it can be judged at once.
bool isOfItsOwn(std::string_view thing) {
  return thing == "directory" || thing == "application";
}

class Court {
 public:
  Court(inventory::Snapshot& snapshot, const std::string& server, const inventory::NotKnown& notKnown,
        const inventory::Coverage& coverage, const Audience& audience)
      : snapshot_(snapshot),
        server_(server),
        tables_(snapshot.tableNames()),
        notKnown_(notKnown),
        coverage_(coverage),
        audience_(audience) {}

  void hold() {
    nameItems();
    for (const Judge& judge : judges()) hold(judge);
  }

 private:
  bool isThere(std::string_view table) const { return std::ranges::find(tables_, table) != tables_.end(); }

  bool isCollected(std::string_view table, ItemKind kind) const {
    return isThere(table) && coverage_.hasSome(server_, table, kind);
  }

  void nameItems() {
    if (isThere("tblFTPSiteInfo")) {
      const auto rows = snapshot_.rowsOf("tblFTPSiteInfo", {server_});
      while (rows->next()) {
        sites_.emplace_back(rows->cell(2).value_or(""));
        siteNames_.insert(inventory::folded(sites_.back()));
        names_[sites_.back()] = rows->cell(1).value_or("");
      }
    }
    if (isThere("tblAppPoolInfo")) {
      const auto rows = snapshot_.rowsOf("tblAppPoolInfo", {server_});
      while (rows->next()) {
        pools_.emplace_back(rows->cell(1).value_or(""));
        poolNames_.insert(inventory::folded(pools_.back()));
      }
    }
  }

  // Rows stay of what a later list doesn't have any more, until their own tables are collected again.
  bool isGone(ItemKind kind, const std::string& item) const {
    if (kind == ItemKind::kNone) return false;
    const std::string_view list = kind == kSite ? "tblFTPSiteInfo" : "tblAppPoolInfo";
    return !(kind == kSite ? siteNames_ : poolNames_).contains(inventory::folded(item)) && isThere(list) &&
           coverage_.has(server_, list, kind) && notKnown_.whyMissing(server_, list, item).empty();
  }

  void hold(const Judge& judge) {
    rule_ = &rules()[static_cast<std::size_t>(&judge - judges().data())];
    unknown_.clear();
    firstUnknown_.clear();
    forget();
    std::string missing;
    const auto note = [&](std::string_view table) {
      if (missing.find(table) != missing.npos) return;
      missing += (missing.empty() ? "" : ", ") + std::string(table);
    };
    for (std::size_t condition = 0; condition < judge.conditions.size(); ++condition) {
      for (const Look& look : judge.conditions[condition]) {
        if (!isCollected(look.table, look.kind)) {
          note(look.table);
          continue;
        }
        if (isOfItsOwn(thingOf(judge, look))) settle();
        lookAt(judge, condition, look);
      }
    }
    if (!judge.without.empty() && isCollected(judge.without, kPool)) {
      removeServing(judge.without);
    } else if (!judge.without.empty()) {
      note(judge.without);
      forget();
    }
    settle();
    if (!missing.empty()) audience_.notJudged({rule_, "not collected: " + missing});
    tellUnknown();
  }

  void lookAt(const Judge& judge, std::size_t condition, const Look& look) {
    const std::size_t place = inventory::tableIndex(look.table);
    const inventory::Table& table = inventory::tables()[place];
    const std::string_view thing = thingOf(judge, look);
    const auto rows = snapshot_.rowsOf(std::string(look.table), {server_});
    std::unordered_set<std::string> seen;
    while (rows->next()) {
      const inventory::NotKnownCells notKnown =
          notKnown_.of(place, [&](std::size_t column) { return rows->cell(column); });
      const RowView row(table, *rows, notKnown);
      if (look.table == "tblGeneral" &&
          (row.at(look.kind == kSite ? inventory::kSiteColumn : inventory::kPoolColumn).empty())) {
        continue;
      }
      const std::string site(row.at(inventory::kSiteColumn)), pool(row.at(inventory::kPoolColumn));
      seen.insert(look.kind == kSite ? site : inventory::folded(pool));
      if (isGone(look.kind, look.kind == kSite ? site : pool)) continue;
      const bool holds = look.holds(row);
      if (!holds && !row.isUnknown()) continue;
      Standing own;
      Standing* standing = &own;
      std::string name = nameOf(thing, site, pool, &row);
      if (isOfItsOwn(thing)) {
        own = {thing, std::move(name), {Answer::kNo}, {}};
      } else {
        standing = standingOf(judge, condition, thing, std::move(name));
      }
      if (standing == nullptr) continue;
      Answer& answer = standing->answers[condition];
      if (row.isUnknown()) {
        answer = std::max(answer, Answer::kUnknown);
      } else {
        answer = Answer::kYes;
        standing->rows.push_back(evidence(look, row));
      }
      if (standing == &own) decide(own);
    }
    // What has no row because it couldn't be read, or because nobody has looked.
    if (look.kind == ItemKind::kNone) return;
    const bool isSite = look.kind == kSite;
    for (const std::string& item : isSite ? sites_ : pools_) {
      if (seen.contains(isSite ? item : inventory::folded(item))) continue;
      if (coverage_.has(server_, look.table, look.kind, item) &&
          notKnown_.whyMissing(server_, look.table, item).empty()) {
        continue;
      }
      const std::string_view of = isSite ? "site" : "pool";
      Standing* const standing = standingOf(judge, condition, of, nameOf(of, item, item, nullptr));
      if (standing == nullptr) continue;
      standing->answers[condition] = std::max(standing->answers[condition], Answer::kUnknown);
    }
  }

  static std::string evidence(const Look& look, const RowView& row) {
    std::string text(look.table);
    std::string_view gap = ": ";
    for (const std::string_view column : look.columns) {
      text.append(gap).append(column).append(" = ").append(row.shown(column));
      gap = ", ";
    }
    return text;
  }

  static std::string_view thingOf(const Judge& judge, const Look& look) {
    return !judge.thing.empty()                  ? judge.thing
           : look.table == "tblvirtualDirectory" ? "directory"
           : look.table == "tblAppliedObject"    ? "application"
           : look.kind == kPool                  ? "pool"
                                                 : "site";
  }

  // `row` is missing where a site or pool has none.
  std::string nameOf(std::string_view thing, const std::string& site, const std::string& pool,
                     const RowView* row) const {
    if (thing == "site") {
      const auto found = names_.find(site);
      return site + (found == names_.end() ? "" : " (" + found->second + ")");
    }
    if (thing == "directory")
      return std::string(row->at(inventory::kPathColumn)) + "/" + std::string(row->at("Directory name"));
    if (thing == "application") return pool + ": " + std::string(row->at("Object name"));
    if (thing == "extension") {
      const std::string_view name = row->at("Web service extension");
      return name.empty() ? "(no name)" : std::string(name);
    }
    return pool;
  }

  // Nothing where an earlier condition doesn't hold already.
  Standing* standingOf(const Judge& judge, std::size_t condition, std::string_view thing, std::string name) {
    const std::string key = std::string(thing) + '\n' + name;
    if (condition > 0) {
      const auto found = standings_.find(key);
      return found == standings_.end() || found->second.answers[condition - 1] == Answer::kNo
                 ? nullptr
                 : &found->second;
    }
    const auto [at, isNew] = standings_.try_emplace(key);
    if (isNew) {
      at->second.thing = thing;
      at->second.name = std::move(name);
      at->second.answers.resize(judge.conditions.size());
      order_.push_back(&at->second);
    }
    return &at->second;
  }

  void removeServing(std::string_view table) {
    const auto rows = snapshot_.rowsOf(std::string(table), {server_});
    const std::size_t column =
        inventory::columnIndex(inventory::tables()[inventory::tableIndex(table)], inventory::kPoolColumn);
    std::unordered_map<std::string, bool> serving;
    while (rows->next()) serving[inventory::folded(rows->cell(column).value_or(""))] = true;
    for (Standing* const pool : order_) {
      if (serving.contains(inventory::folded(pool->name))) {
        pool->answers[0] = Answer::kNo;
      } else if (!coverage_.has(server_, table, kPool, pool->name) ||
                 !notKnown_.whyMissing(server_, table, pool->name).empty()) {
        pool->answers[0] = Answer::kUnknown;
      }
    }
  }

  void forget() {
    order_.clear();
    standings_.clear();
  }

  void settle() {
    for (Standing* const standing : order_) decide(*standing);
    forget();
  }

  void decide(Standing& standing) {
    const Answer least = *std::ranges::min_element(standing.answers);
    if (least == Answer::kYes) {
      audience_.found({rule_, standing.thing, std::move(standing.name), std::move(standing.rows)});
    } else if (least == Answer::kUnknown) {
      std::string name = std::string(standing.thing) + " " + standing.name;
      if (unknown_.insert(name).second && firstUnknown_.size() < kMostNames)
        firstUnknown_.push_back(std::move(name));
    }
  }

  void tellUnknown() {
    if (unknown_.empty()) return;
    std::string reason;
    for (const std::string& name : firstUnknown_) reason += (reason.empty() ? "not known of " : ", ") + name;
    if (unknown_.size() > firstUnknown_.size())
      reason += " and " + std::to_string(unknown_.size() - firstUnknown_.size()) + " more";
    audience_.notJudged({rule_, std::move(reason)});
  }

  inventory::Snapshot& snapshot_;
  const std::string& server_;
  const std::vector<std::string> tables_;
  const inventory::NotKnown& notKnown_;
  const inventory::Coverage& coverage_;
  const Audience& audience_;
  std::vector<std::string> sites_;
  std::vector<std::string> pools_;
  std::unordered_set<std::string> siteNames_;  // folded, as the next
  std::unordered_set<std::string> poolNames_;
  std::unordered_map<std::string, std::string> names_;  // of sites, by identifier
  std::unordered_map<std::string, Standing> standings_;
  std::vector<Standing*> order_;
  std::unordered_set<std::string> unknown_;
  std::vector<std::string> firstUnknown_;  // in their order
  const Rule* rule_ = nullptr;
};

}  // namespace

std::span<const Rule> rules() {
  static const std::vector<Rule> kRules = [] {
    std::vector<Rule> all;
    for (const Judge& judge : judges()) all.push_back(judge.rule);
    return all;
  }();
  return kRules;
}

void judge(inventory::Snapshot& snapshot, const std::string& server, const inventory::NotKnown& notKnown,
           const inventory::Coverage& coverage, const Audience& audience) {
  Court(snapshot, server, notKnown, coverage, audience).hold();
}

}  // namespace host
