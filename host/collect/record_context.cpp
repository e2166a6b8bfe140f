#include "host/collect/record_context.h"

#include <algorithm>
#include <utility>

#include "automation/failure.h"
#include "host/collect/problem_text.h"
#include "inventory/clock.h"

namespace host {

using automation::equalsIgnoringCase;
using automation::fromUtf8;
using automation::Text;
using automation::TextView;
using automation::toUtf8;
using inventory::ObjectKind;
using inventory::Problem;

namespace {

constexpr std::string_view kNodeStart = "IIS://";
constexpr TextView kProcessing = u"Processing ";

// The walk over the children of a web site always meets some whose class has no path. Nothing is wrong with
// them, so their records stay in the log.
constexpr std::string_view kChildRoutine = "GetAppliedObjectProperties";
constexpr std::string_view kChildProperty = "Path";
constexpr auto kNoSuchProperty = static_cast<std::int32_t>(0x8000500D);

constexpr std::string_view kDirectories = "tblvirtualDirectory";
constexpr std::string_view kDirectorySecurity = "tblvirtualDirSecurity";

// Records of these routines concern another table than that of the call.
struct RoutineTable {
  std::string_view routine;
  std::string_view callTable;  // empty for any
  std::string_view table;
};
constexpr RoutineTable kRoutineTables[] = {
    {"GenerateFTPSiteInfo", "", "tblFTPSiteInfo"},
    {"GetAppPoolsCount", "", "tblAppPoolInfo"},
    {"GetVirtualDirSecurityProperties", "", kDirectorySecurity},
    {"GetRestrictedIPAddress", kDirectories, kDirectorySecurity},
};

bool isName(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.' || static_cast<unsigned char>(c) >= 0x80;
  });
}

// The quoted name in a status text, trimmed.
Text quotedIn(TextView status) {
  const std::size_t begin = status.find(u'\'');
  const std::size_t end = status.rfind(u'\'');
  if (begin == status.npos || end == begin) return {};
  Text name;
  for (std::size_t at = begin + 1; at < end; ++at) {
    name += status[at];
    if (status[at] == u'\'') ++at;
  }
  return Text(automation::trimBlanks(name));
}

// The site or pool of a node; empty if it belongs to none.
std::string itemOf(ObjectKind kind, const std::string& node, const std::string& server) {
  const Text path = fromUtf8(node);
  const Text start =
      u"IIS://" + fromUtf8(server) + (kind == ObjectKind::kSite ? u"/MSFTPSVC/" : u"/W3SVC/AppPools/");
  if (kind == ObjectKind::kNone || !equalsIgnoringCase(TextView(path).substr(0, start.size()), start))
    return {};
  const TextView rest = TextView(path).substr(start.size());
  return toUtf8(rest.substr(0, rest.find(u'/')));
}

std::string nodeOf(ObjectKind kind, const std::string& item, const std::string& server) {
  if (kind == ObjectKind::kNone || item.empty()) return {};
  return "IIS://" + server + (kind == ObjectKind::kSite ? "/MSFTPSVC/" : "/W3SVC/AppPools/") + item;
}

}  // namespace

MessageLocation parseMessageLocation(std::string_view message) {
  MessageLocation place{{}, {}, std::string(message)};
  if (!message.starts_with(kNodeStart)) return place;
  // A path may contain such a text itself, so the first class name that is followed by a property or reason
  // counts.
  for (std::size_t open = message.find(" ("); open != message.npos; open = message.find(" (", open + 1)) {
    const std::size_t close = message.find(')', open);
    if (close == message.npos) break;
    if (!isName(message.substr(open + 2, close - open - 2))) continue;
    std::string_view rest = message.substr(close + 1);
    std::string_view property;
    if (rest.starts_with(", ")) {
      const std::size_t colon = rest.find(':');
      if (colon == rest.npos || !isName(rest.substr(2, colon - 2))) continue;
      property = rest.substr(2, colon - 2);
    } else if (!rest.starts_with(": ")) {
      continue;
    }
    rest.remove_prefix(2);
    return {std::string(message.substr(0, open)), std::string(property), std::string(rest)};
  }
  // A node that does not exist has no class.
  if (const std::size_t colon = message.find(": ", kNodeStart.size()); colon != message.npos) {
    return {std::string(message.substr(0, colon)), {}, std::string(message.substr(colon + 2))};
  }
  return place;
}

RecordContext RecordContext::ofItem(std::string_view table, ObjectKind kind, std::string item,
                                    std::string node) {
  RecordContext place;
  place.table_ = table;
  place.kind_ = kind;
  place.item_ = std::move(item);
  place.node_ = std::move(node);
  return place;
}

RecordContext RecordContext::ofAll(std::string_view table, ObjectKind kind, const std::vector<Item>& items) {
  RecordContext place;
  place.table_ = table;
  place.kind_ = kind;
  place.items_ = &items;
  return place;
}

// Several items may have a name; the status refers to the next one.
void RecordContext::sent(TextView status, std::span<Problem> since) {
  if (table_ == kDirectories && status.starts_with(kProcessing)) {
    // A directory's security is read before its status text.
    directoryStatus_.assign(status);
    for (Problem& problem : since) {
      if (problem.table == kDirectorySecurity && problem.node.empty()) problem.node = directory();
    }
  }
  if (items_ == nullptr) return;
  item_.clear();
  if (!status.starts_with(kProcessing)) return;
  const Text name = quotedIn(status);
  for (std::size_t at = next_; at < items_->size(); ++at) {
    if ((*items_)[at].name != name) continue;
    item_ = (*items_)[at].id;
    next_ = at + 1;
    return;
  }
}

std::string RecordContext::directory() const {
  return directoryStatus_.empty() ? std::string() : node_ + "/" + toUtf8(quotedIn(directoryStatus_));
}

std::optional<Problem> RecordContext::problemOf(const Record& record, const std::string& server,
                                                const std::string& unset) {
  MessageLocation place = parseMessageLocation(record.message);
  const bool isUnset = place.node.empty() && !unset.empty();
  if (isUnset) place = parseMessageLocation(unset + ": ");
  // A step without an object fails because the previous step, which should have set it, has failed.
  if (record.number == automation::number::kObjectNotSet && place.node.empty() &&
      record.routine == lastRoutine_) {
    place.node = last_.node;
    place.property = last_.property;
  }
  lastRoutine_ = record.routine;
  last_ = place;
  if (record.routine == kChildRoutine && place.property == kChildProperty && record.number == kNoSuchProperty)
    return std::nullopt;
  Problem problem;
  problem.time = inventory::utcNow();
  problem.routine = record.routine;
  problem.number = record.number;
  if (const CountedItems* counted = findCountOverflow(record)) {
    problem.isNote = counted->table.empty();
    problem.table = counted->table;
    problem.itemKind = kind_;
    problem.item = counted->table.empty() ? "" : item_;
    problem.node = nodeOf(kind_, problem.item, server);
    problem.message = messageOf(*counted);
    return problem;
  }
  problem.table = table_;
  for (const RoutineTable& entry : kRoutineTables) {
    if (entry.routine != record.routine) continue;
    if (entry.callTable.empty() || entry.callTable == table_) problem.table = entry.table;
  }
  problem.itemKind = kind_;
  problem.item = item_;
  const bool isOther = items_ != nullptr || item_.empty();
  if (const std::string item = itemOf(kind_, place.node, server); isOther && !item.empty())
    problem.item = item;
  problem.node = place.node;
  // The routine stops at a value that is not set, which leaves more unknown than what derives from it.
  if (!isUnset) problem.property = place.property;
  // For a directory's security, the next status text names the directory.
  if (problem.node.empty() && problem.table != kDirectorySecurity) {
    problem.node = directory();
    if (problem.node.empty()) problem.node = node_.empty() ? nodeOf(kind_, problem.item, server) : node_;
  }
  problem.message = messageOf(record, place.property);
  return problem;
}

}  // namespace host
