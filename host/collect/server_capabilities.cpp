#include "host/collect/server_capabilities.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include <fmt/core.h>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/servers.h"

namespace host {
namespace {

using automation::Failure;
using automation::fromUtf8;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;
using automation::toUtf8;

constexpr std::int16_t kFirstVersionWithPools = 6;

std::vector<std::string> childNames(const ObjectRef& parent) {
  std::vector<std::string> names;
  if (parent == nullptr) return names;
  const auto walk = automation::children(parent);
  while (const ObjectRef child = walk->next()) {
    names.push_back(toUtf8(automation::toText(automation::read(child, u"Name"))));
  }
  return names;
}

// The version of the server, read as the component reads it; nothing if that fails, which the component then
// records where it matters.
std::optional<std::int16_t> versionOf(const std::string& server) {
  try {
    const ObjectRef common = automation::CreateObject(u"MARLINSCOPEGLOBALCOM.ICommonFunction");
    automation::Variant name = fromUtf8(server);
    return automation::toInt16(automation::callByReference(common, u"getos", name));
  } catch (const Failure&) {
    return std::nullopt;
  }
}

// The wanted items as the server spells them. Adds those that it has to `found`, as the user spells them.
std::vector<std::string> spelledByServer(const std::vector<std::string>& wanted,
                                         const std::vector<std::string>& there,
                                         std::vector<std::string>& found) {
  std::vector<std::string> items;
  for (const std::string& item : wanted) {
    const auto same = std::ranges::find_if(there, [&](const std::string& name) {
      return automation::equalsIgnoringCase(fromUtf8(name), fromUtf8(item));
    });
    if (same != there.end()) found.push_back(item);
    const std::string& spelled = same != there.end() ? *same : item;
    if (std::ranges::find(items, spelled) == items.end()) items.push_back(spelled);
  }
  return items;
}

}  // namespace

ObjectRef objectAt(const std::string& server, TextView path) {
  try {
    return automation::GetObject(u"IIS://" + fromUtf8(server) + Text(path));
  } catch (const Failure& failure) {
    if (failure.number() != platform::metabase::number::kPathNotFound) throw;
    return nullptr;
  }
}

ServerCapabilities capabilitiesOf(const Server& server) {
  ServerCapabilities capabilities;
  capabilities.hasSites = objectAt(server.name, u"/MSFTPSVC") != nullptr;
  capabilities.hasWeb = objectAt(server.name, u"/W3SVC") != nullptr;
  if (!capabilities.hasSites) capabilities.sitesNote = "no FTP service, so there are no FTP sites to collect";
  if (!capabilities.hasWeb) {
    capabilities.poolsNote = "no web service, so there are no application pools to collect";
  } else if (const auto version = versionOf(server.name); version && *version < kFirstVersionWithPools) {
    capabilities.hasWeb = false;
    capabilities.poolsNote = fmt::format("no application pools (IIS {} has none)", *version);
  } else {
    capabilities.hasPools = objectAt(server.name, u"/W3SVC/AppPools") != nullptr;
    if (!capabilities.hasPools) {
      capabilities.poolsNote = "no node /LM/W3SVC/AppPools, so there are no application pools to collect";
    }
  }
  if (platform::metabase::snapshotOf(fromUtf8(server.name))->isPartialExport()) {
    const std::string note = " (a partial export)";
    if (capabilities.hasSites) capabilities.sitesNote = "no element of the FTP service" + note;
    if (capabilities.hasPools) capabilities.poolsNote = "no element of the web service" + note;
  }
  if (!capabilities.hasSites && !capabilities.hasWeb) {
    platform::metabase::fail(platform::metabase::number::kPathNotFound,
                             fmt::format("{}: the server has {}, and it has {}", server.source.shown(),
                                         capabilities.sitesNote, capabilities.poolsNote));
  }
  return capabilities;
}

CanonicalSelection canonicalize(const Selection& selection, const std::string& server) {
  CanonicalSelection canonical{selection, {}, {}};
  const auto spell = [&](std::vector<std::string>& items, TextView container,
                         std::vector<std::string>& found) {
    if (!items.empty()) items = spelledByServer(items, childNames(objectAt(server, container)), found);
  };
  spell(canonical.selection.sites, u"/MSFTPSVC", canonical.foundSites);
  spell(canonical.selection.pools, u"/W3SVC/AppPools", canonical.foundPools);
  return canonical;
}

}  // namespace host
