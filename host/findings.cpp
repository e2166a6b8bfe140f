#include "host/findings.h"

#include <algorithm>
#include <cctype>
#include <unordered_map>
#include <unordered_set>

#include "inventory/names.h"

namespace host {
namespace {

using inventory::column;
using inventory::ColumnRef;
using inventory::DataRow;
using inventory::ObjectInfo;
using inventory::ObjectKind;

constexpr std::size_t kMaxNames = 5;  // of objects that a rule could not be evaluated for

// A row that a predicate looks at. Reading an unknown cell makes the result unknown.
class RowView {
 public:
  explicit RowView(const DataRow& row) : row_(row) {}

  std::string_view at(ColumnRef column) const {
    isUnknown_ = isUnknown_ || row_.isUnknown(column);
    return row_.cell(column).value_or("");
  }
  bool is(ColumnRef column, std::string_view text) const { return inventory::sameName(at(column), text); }
  bool isUnknown() const { return isUnknown_; }

 private:
  const DataRow& row_;
  mutable bool isUnknown_ = false;
};

// Rows of a table, the columns that are shown as evidence, and what must hold for a row.
struct Predicate {
  ObjectKind kind;
  std::vector<ColumnRef> columns;  // all of one table
  bool (*holds)(const RowView& row);

  std::size_t table() const { return columns.front().table; }
};

// A rule holds for an object for which at least one predicate of each condition does.
struct RuleDefinition {
  Rule rule;
  ObjectKind kind;  // kNone: what the row is about
  std::vector<std::vector<Predicate>> conditions;
  bool servesNothing = false;  // and which, being a pool, has no application
};

constexpr ObjectKind kSite = ObjectKind::kSite;
constexpr ObjectKind kDirectory = ObjectKind::kDirectory;
constexpr ObjectKind kPool = ObjectKind::kPool;
constexpr ObjectKind kExtension = ObjectKind::kExtension;
constexpr ObjectKind kApplication = ObjectKind::kApplication;

constexpr ColumnRef kAllowsAnonymous = column("tblSecurityAccounts", "Allow Anonymous Connections");
constexpr ColumnRef kAnonymousUser = column("tblSecurityAccounts", "User name");
constexpr ColumnRef kHomePath = column("tblHomeDirectorySetting", "Path");
constexpr ColumnRef kHomeWrite = column("tblHomeDirectorySetting", "Write");
constexpr ColumnRef kHomeLogVisits = column("tblHomeDirectorySetting", "Log visits");
constexpr ColumnRef kDirectoryParent = column("tblvirtualDirectory", "IISPath");
constexpr ColumnRef kDirectoryName = column("tblvirtualDirectory", "Directory name");
constexpr ColumnRef kDirectoryPath = column("tblvirtualDirectory", "Path");
constexpr ColumnRef kDirectoryWrite = column("tblvirtualDirectory", "Write");
constexpr ColumnRef kAllComputers = column("tblDirectorySecuritySetting", "All computer access");
constexpr ColumnRef kGranted = column("tblDirectorySecuritySetting", "Granted IP Address (Subnet mask)");
constexpr ColumnRef kDenied = column("tblDirectorySecuritySetting", "Denied IP Address (Subnet mask)");
constexpr ColumnRef kIdentityType = column("tblIdentity", "Application pool identity settings");
constexpr ColumnRef kAccount = column("tblIdentity", "Security account");
constexpr ColumnRef kPinging = column("tblHealth", "Enable pinging");
constexpr ColumnRef kRapidFail = column("tblHealth", "Enable rapid-fail protection");
constexpr ColumnRef kLogging = column("tblLogFileSetting", "Enable Logging");
constexpr ColumnRef kOdbcSource = column("tblLogFileSetting", "ODBC Data Source Name (DSN)");
constexpr ColumnRef kOdbcUser = column("tblLogFileSetting", "ODBC User name");
constexpr ColumnRef kExtensionName = column("tblWSExtension", "Web service extension");
constexpr ColumnRef kDescription = column("tblWSExtension", "Description");
constexpr ColumnRef kStatus = column("tblWSExtension", "Status");
constexpr ColumnRef kState = column("tblGeneral", "State");
constexpr ColumnRef kPoolName = column("tblAppPoolInfo", "Application pool name");
constexpr ColumnRef kSiteName = column("tblFTPSiteInfo", "FTP site name");
constexpr ColumnRef kApplicationName = column("tblAppliedObject", "Object name");
constexpr ColumnRef kLocalPath = column("tblAppliedObject", "Local path");
constexpr std::string_view kApplications = "tblAppliedObject";

template <ColumnRef kColumn, bool (*kTest)(std::string_view)>
bool passes(const RowView& row) {
  return kTest(row.at(kColumn));
}

bool isOnShare(std::string_view path) {
  return path.starts_with("\\\\");
}

bool isOnOtherDrive(std::string_view path) {
  return path.size() >= 2 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0])) != 0 &&
         path[0] != 'C' && path[0] != 'c';
}

// All content: home directories, virtual directories and web applications.
template <bool (*kTest)(std::string_view)>
std::vector<Predicate> contentPath() {
  return {{kSite, {kHomePath}, passes<kHomePath, kTest>},
          {kDirectory, {kDirectoryPath}, passes<kDirectoryPath, kTest>},
          {kApplication, {kLocalPath}, passes<kLocalPath, kTest>}};
}

bool allowsAnonymous(const RowView& row) {
  return row.is(kAllowsAnonymous, "Yes");
}

bool isOpenToAll(const RowView& row) {
  const bool isListed = !row.at(kGranted).empty() || !row.at(kDenied).empty();
  return row.is(kAllComputers, "Granted") && !isListed;
}

bool allowsUnknownExtensions(const RowView& row) {
  return (row.is(kDescription, "All Unknown CGI Extensions") ||
          row.is(kDescription, "All Unknown ISAPI Extensions")) &&
         row.is(kStatus, "Allowed");
}

bool usesNamedAnonymousAccount(const RowView& row) {
  const std::string name = inventory::folded(row.at(kAnonymousUser));
  return allowsAnonymous(row) && !name.empty() && !name.starts_with("iusr_");
}

// --- The rules.

std::vector<RuleDefinition> siteRules() {
  const Predicate anonymous{kSite, {kAllowsAnonymous, kAnonymousUser}, allowsAnonymous};
  return {{{"anonymous-write", "Anonymous users may write",
            "Anyone who finds the site can leave files on it, fill its disk or use it to pass files on.", ""},
           kSite,
           {{anonymous},
            {{kSite, {kHomePath, kHomeWrite}, [](const RowView& row) { return row.is(kHomeWrite, "Yes"); }},
             {kDirectory,
              {kDirectoryParent, kDirectoryName, kDirectoryPath, kDirectoryWrite},
              [](const RowView& row) { return row.is(kDirectoryWrite, "Yes"); }}}}},
          {{"anonymous-from-anywhere", "Anonymous access without any IP restriction",
            "Nothing limits from where the site can be reached without a name and a password.", ""},
           kSite,
           {{anonymous}, {{kSite, {kAllComputers}, isOpenToAll}}}}};
}

std::vector<RuleDefinition> poolRules() {
  return {{{"pool-local-system", "Application pool under LocalSystem",
            "An application that is taken over has the rights of the whole machine.",
            "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/"
            "cc780343(v=ws.10)"},
           kPool,
           {{{kPool,
              {kIdentityType, kAccount},
              [](const RowView& row) { return row.is(kAccount, "Local System"); }}}}},
          {{"pool-no-pinging", "Pinging of worker processes is off",
            "A worker process that hangs isn't noticed and isn't replaced.",
            "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/"
            "cc780042(v=ws.10)"},
           kPool,
           {{{kPool, {kPinging}, [](const RowView& row) { return row.is(kPinging, "False"); }}}}},
          {{"pool-no-rapid-fail", "Rapid-fail protection is off",
            "A worker process that keeps failing is started again and again, at the cost of the others.",
            "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/"
            "cc779127(v=ws.10)"},
           kPool,
           {{{kPool, {kRapidFail}, [](const RowView& row) { return row.is(kRapidFail, "False"); }}}}}};
}

std::vector<RuleDefinition> otherRules() {
  return {
      {{"logging-off", "Logging is off", "What was done on the site can't be found out afterwards.", ""},
       kSite,
       {{{kSite, {kLogging}, [](const RowView& row) { return row.is(kLogging, "No"); }},
         {kSite,
          {kHomePath, kHomeLogVisits},
          [](const RowView& row) { return row.is(kHomeLogVisits, "No"); }}}}},
      {{"unknown-extensions-allowed", "Unknown CGI or ISAPI extensions are allowed",
        "Any program that gets into a directory with execute permission runs.",
        "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2008-r2-and-2008/"
        "cc753816(v=ws.10)"},
       kExtension,
       {{{kExtension, {kDescription, kStatus}, allowsUnknownExtensions}}}},
      {{"network-share", "Content on a network share",
        "The other machine, its share and the account that reaches it have to move along, or stay.", ""},
       ObjectKind::kNone,
       {contentPath<isOnShare>()}},
      {{"other-drive", "Content on another drive than C:",
        "The new machine needs a drive of that letter, or another path.", ""},
       ObjectKind::kNone,
       {contentPath<isOnOtherDrive>()}},
      {{"named-account", "A named account is used",
        "The account and its password have to be there after a migration too.",
        "https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/"
        "cc781986(v=ws.10)"},
       ObjectKind::kNone,
       {{{kPool,
          {kAccount},
          [](const RowView& row) {
            return row.is(kIdentityType, "Configurable") && !row.at(kAccount).empty();
          }},
         {kSite, {kAllowsAnonymous, kAnonymousUser}, usesNamedAnonymousAccount},
         {kSite,
          {kLogging, kOdbcSource, kOdbcUser},
          [](const RowView& row) { return row.is(kLogging, "Yes") && !row.at(kOdbcUser).empty(); }}}}},
      {{"stopped", "A site or pool is stopped",
        "It is no longer needed and can probably be removed, or its users are missing it.", ""},
       ObjectKind::kNone,
       {{{kSite, {kState}, [](const RowView& row) { return row.is(kState, "Stopped"); }},
         {kPool, {kState}, [](const RowView& row) { return row.is(kState, "Stopped"); }}}}},
      {{"pool-serves-nothing", "A pool serves nothing",
        "No application is assigned to it; it can probably be removed.", ""},
       kPool,
       {{{kPool, {kPoolName}, [](const RowView&) { return true; }}}},
       true}};
}

const std::vector<RuleDefinition>& definitions() {
  static const std::vector<RuleDefinition> kDefinitions = [] {
    std::vector<RuleDefinition> all;
    for (auto& part : {siteRules(), poolRules(), otherRules()})
      all.insert(all.end(), part.begin(), part.end());
    return all;
  }();
  return kDefinitions;
}

// --- Evaluation.

enum class Answer : unsigned char { kNo, kUnknown, kYes };

// An object, and the conditions' answers for it so far.
struct Candidate {
  Finding finding;
  std::vector<Answer> answers;
};

class RuleEvaluator {
 public:
  RuleEvaluator(const inventory::ServerData& data, const FindingSink& sink) : data_(data), sink_(sink) {}

  void evaluate(const RuleDefinition& definition) {
    definition_ = &definition;
    rule_ = &rules()[static_cast<std::size_t>(&definition - definitions().data())];
    std::string missing;
    const auto addMissing = [&](std::string_view table) {
      if (missing.find(table) != missing.npos) return;
      missing += (missing.empty() ? "" : ", ") + std::string(table);
    };
    for (std::size_t condition = 0; condition < definition.conditions.size(); ++condition) {
      for (const Predicate& predicate : definition.conditions[condition]) {
        const std::string_view table = inventory::tables()[predicate.table()].name;
        if (!data_.isCollected(table, predicate.kind)) {
          addMissing(table);
          continue;
        }
        const ObjectKind kind = subjectKind(predicate);
        if (kind == kDirectory || kind == kApplication) decideAll();
        evaluateRows(condition, predicate);
        addItemsWithoutRows(condition, predicate);
      }
    }
    if (definition.servesNothing && data_.isCollected(kApplications, kApplication)) {
      excludeServingPools();
    } else if (definition.servesNothing) {
      addMissing(kApplications);
      candidates_.clear();
      order_.clear();
    }
    decideAll();
    if (!missing.empty()) sink_.notEvaluated({rule_, "not collected: " + missing});
    reportUnknown();
  }

 private:
  ObjectKind subjectKind(const Predicate& predicate) const {
    return definition_->kind == ObjectKind::kNone ? predicate.kind : definition_->kind;
  }

  // The object of a kind that a row is about, or null.
  const ObjectInfo* subjectOf(const DataRow& row, ObjectKind kind) const {
    const ObjectInfo* object = data_.object(row.objectId());
    while (object != nullptr && object->kind != kind) object = data_.object(object->parent);
    return object;
  }

  void evaluateRows(std::size_t condition, const Predicate& predicate) {
    const inventory::Table& table = inventory::tables()[predicate.table()];
    const ObjectKind itemKind = inventory::itemKindOf(predicate.kind), kind = subjectKind(predicate);
    const std::size_t item =
        itemKind == ObjectKind::kNone
            ? table.columns.size()
            : table.find(itemKind == kSite ? inventory::kSiteColumn : inventory::kPoolColumn);
    itemsWithRows_.clear();
    for (std::size_t at = 0; at < data_.rowCount(predicate.table()); ++at) {
      const DataRow row = data_.row(predicate.table(), at);
      // A row of the table's other kind.
      if (table.kinds[1] != ObjectKind::kNone && row.cell(item).value_or("").empty()) continue;
      if (const ObjectInfo* const found = subjectOf(row, itemKind)) itemsWithRows_.insert(found->id);
      const RowView view(row);
      const bool holds = predicate.holds(view);
      if (!holds && !view.isUnknown()) continue;
      const ObjectInfo* const subject = subjectOf(row, kind);
      Candidate* const candidate = candidateFor(condition, subject != nullptr ? subject->id : row.id());
      if (candidate == nullptr) continue;
      if (candidate->finding.name.empty()) describe(candidate->finding, kind, subject, &row, &view);
      Answer& answer = candidate->answers[condition];
      answer = std::max(answer, view.isUnknown() ? Answer::kUnknown : Answer::kYes);
      if (!view.isUnknown()) candidate->finding.evidence.push_back(evidence(predicate, row));
    }
  }

  // Sites and pools without a row that could not be read or were not looked at.
  void addItemsWithoutRows(std::size_t condition, const Predicate& predicate) {
    const ObjectKind kind = inventory::itemKindOf(predicate.kind);
    if (kind == ObjectKind::kNone) return;
    const std::string_view table = inventory::tables()[predicate.table()].name;
    for (const ObjectInfo& object : data_.objects()) {
      if (object.kind != kind || itemsWithRows_.contains(object.id)) continue;
      if (data_.isCollected(table, predicate.kind, object.id) && !data_.hasReasons(table, object.id))
        continue;
      Candidate* const candidate = candidateFor(condition, object.id);
      if (candidate == nullptr) continue;
      if (candidate->finding.name.empty()) describe(candidate->finding, kind, &object, nullptr, nullptr);
      candidate->answers[condition] = std::max(candidate->answers[condition], Answer::kUnknown);
    }
  }

  static std::string evidence(const Predicate& predicate, const DataRow& row) {
    std::string text(row.table().name);
    std::string_view gap = ": ";
    for (const ColumnRef column : predicate.columns) {
      text.append(gap).append(row.table().columns[column.column].name).append(" = ");
      text.append(row.isUnknown(column) ? "not known" : row.cell(column).value_or(""));
      gap = ", ";
    }
    return text;
  }

  // `row` and `view` are null for a site or pool without a row.
  void describe(Finding& finding, ObjectKind kind, const ObjectInfo* object, const DataRow* row,
                const RowView* view) const {
    const auto cell = [&](std::string_view name) {
      return row == nullptr ? std::string() : row->text(row->table().find(name));
    };
    finding.kind = inventory::wordFor(kind);
    if (kind == kDirectory) {
      finding.name = row->text(kDirectoryParent) + "/" + row->text(kDirectoryName);
    } else if (kind == kApplication) {
      finding.name = cell(inventory::kPoolColumn) + ": " + std::string(view->at(kApplicationName));
    } else if (kind == kExtension) {
      finding.name = row->text(kExtensionName);
      if (finding.name.empty()) finding.name = "(no name)";
    } else {
      finding.name = object != nullptr
                         ? object->key
                         : cell(kind == kSite ? inventory::kSiteColumn : inventory::kPoolColumn);
      if (kind != kSite || object == nullptr) return;
      const auto sites = data_.rowsOf(kSiteName.table, object->id);
      if (!sites.empty()) finding.name += " (" + sites.front().text(kSiteName) + ")";
    }
  }

  // Null if an earlier condition does not hold.
  Candidate* candidateFor(std::size_t condition, std::int64_t object) {
    if (condition > 0) {
      const auto found = candidates_.find(object);
      return found == candidates_.end() || found->second.answers[condition - 1] == Answer::kNo
                 ? nullptr
                 : &found->second;
    }
    const auto [at, isNew] = candidates_.try_emplace(object);
    if (isNew) {
      at->second.finding.rule = rule_;
      at->second.finding.object = object;
      at->second.answers.resize(definition_->conditions.size());
      order_.push_back(&at->second);
    }
    return &at->second;
  }

  void excludeServingPools() {
    std::unordered_set<std::int64_t> serving;
    for (const ObjectInfo& object : data_.objects()) {
      if (object.kind == kApplication) serving.insert(object.parent);
    }
    for (Candidate* const pool : order_) {
      const std::int64_t id = pool->finding.object;
      if (serving.contains(id)) {
        pool->answers[0] = Answer::kNo;
      } else if (!data_.isCollected(kApplications, kApplication, id) || data_.hasReasons(kApplications, id)) {
        pool->answers[0] = Answer::kUnknown;
      }
    }
  }

  void decideAll() {
    for (Candidate* const candidate : order_) {
      const Answer least = *std::ranges::min_element(candidate->answers);
      if (least == Answer::kYes) sink_.found(std::move(candidate->finding));
      if (least != Answer::kUnknown) continue;
      std::string name = std::string(candidate->finding.kind) + " " + candidate->finding.name;
      if (unknown_.insert(name).second && firstUnknown_.size() < kMaxNames)
        firstUnknown_.push_back(std::move(name));
    }
    candidates_.clear();
    order_.clear();
  }

  void reportUnknown() {
    if (unknown_.empty()) return;
    std::string reason;
    for (const std::string& name : firstUnknown_) reason += (reason.empty() ? "not known of " : ", ") + name;
    if (unknown_.size() > firstUnknown_.size())
      reason += " and " + std::to_string(unknown_.size() - firstUnknown_.size()) + " more";
    sink_.notEvaluated({rule_, std::move(reason)});
    unknown_.clear();
    firstUnknown_.clear();
  }

  const inventory::ServerData& data_;
  const FindingSink& sink_;
  const RuleDefinition* definition_ = nullptr;
  const Rule* rule_ = nullptr;
  std::unordered_map<std::int64_t, Candidate> candidates_;  // by object
  std::vector<Candidate*> order_;
  std::unordered_set<std::int64_t> itemsWithRows_;
  std::unordered_set<std::string> unknown_;
  std::vector<std::string> firstUnknown_;  // in their order
};

}  // namespace

std::span<const Rule> rules() {
  static const std::vector<Rule> kRules = [] {
    std::vector<Rule> all;
    for (const RuleDefinition& definition : definitions()) all.push_back(definition.rule);
    return all;
  }();
  return kRules;
}

void evaluateRules(const inventory::ServerData& data, const FindingSink& sink) {
  RuleEvaluator evaluator(data, sink);
  for (const RuleDefinition& definition : definitions()) evaluator.evaluate(definition);
}

}  // namespace host
