#include "platform/wmi/applications.h"

#include <map>
#include <mutex>
#include <optional>

#include "automation/variant.h"
#include "platform/metabase/failures.h"

namespace platform::wmi {
namespace {

using automation::Text;
using automation::TextView;
using metabase::Metabase;

constexpr TextView kWebService = u"LM/W3SVC";

// The next node below `top` in pre-order. Not recursive, because the depth of the tree is not limited.
std::optional<Metabase::NodeId> nextInTree(const Metabase& metabase, Metabase::NodeId top,
                                           Metabase::NodeId node) {
  if (const auto child = metabase.firstChild(node)) return child;
  while (node != top) {
    if (const auto sibling = metabase.nextSibling(node)) return sibling;
    node = *metabase.parent(node);
  }
  return std::nullopt;
}

bool isApplicationRoot(const Metabase& metabase, Metabase::NodeId node, std::string_view appRoot) {
  if (!appRoot.empty() && appRoot.back() == '/') appRoot.remove_suffix(1);
  return metabase::equalFolded(metabase.path(node), appRoot);
}

// The property AppPoolId of a node; null for one of a class that does not have it.
automation::Variant poolOf(const Metabase& metabase, Metabase::NodeId node, Metabase::PropertyId appPoolId,
                           TextView server) {
  try {
    return metabase.read(node, appPoolId, server);
  } catch (const automation::Failure& failure) {
    if (failure.number() == metabase::number::kNotOfClass) return automation::Null;
    throw;
  }
}

}  // namespace

Applications::Applications(const Metabase& metabase, TextView server) {
  const auto appRoot = metabase.property(u"AppRoot");
  const auto appPoolId = metabase.property(u"AppPoolId");
  const auto top = metabase.find(metabase.root(), kWebService);
  if (!appRoot || !appPoolId || !top) return;
  for (auto node = nextInTree(metabase, *top, *top); node; node = nextInTree(metabase, *top, *node)) {
    const auto own = metabase.ownText(*node, *appRoot);
    if (!own || !isApplicationRoot(metabase, *node, *own)) continue;
    const automation::Variant pool = poolOf(metabase, *node, *appPoolId, server);
    if (pool.isNull()) continue;
    if (pool.asArray() != nullptr) {
      metabase::fail(metabase::number::kWrongValue, metabase.location(*node, server, "AppPoolId") +
                                                        ": the value is a list, expected a string");
    }
    byPool_[automation::lowerCase(automation::toText(pool))].push_back(*node);
  }
}

const std::vector<Metabase::NodeId>& Applications::inPool(TextView pool) const {
  static const std::vector<Metabase::NodeId> none;
  const auto found = byPool_.find(automation::lowerCase(pool));
  return found == byPool_.end() ? none : found->second;
}

std::shared_ptr<const Applications> Applications::of(const std::shared_ptr<const Metabase>& metabase,
                                                     TextView server) {
  using Weak = std::weak_ptr<const Metabase>;
  static std::mutex mutex;
  static std::map<Weak, std::shared_ptr<const Applications>, std::owner_less<Weak>> made;
  const std::lock_guard lock(mutex);
  if (const auto found = made.find(metabase); found != made.end()) return found->second;
  std::erase_if(made, [](const auto& entry) { return entry.first.expired(); });
  auto applications = std::make_shared<const Applications>(*metabase, server);
  made.emplace(metabase, applications);
  return applications;
}

}  // namespace platform::wmi
