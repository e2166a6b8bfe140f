#include "platform/metabase/servers.h"

#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/node_object.h"

namespace platform::metabase {
namespace {

using automation::Failure;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;

constexpr TextView kMonikerStart = u"IIS://";
constexpr TextView kLocalMachine = u"LM";

class Servers {
 public:
  static Servers& process() {
    static Servers servers;
    return servers;
  }

  void map(TextView server, std::shared_ptr<const Metabase> snapshot) {
    std::shared_ptr<const Origin> entry =
        std::make_shared<const Origin>(Origin{std::move(snapshot), Text(server)});
    const std::unique_lock lock(mutex_);
    std::swap(servers_[automation::lowerCase(server)], entry);
  }

  void unmap(TextView server) {
    decltype(servers_)::node_type removed;  // destroyed after the lock is released; it may own much memory
    const std::unique_lock lock(mutex_);
    removed = servers_.extract(automation::lowerCase(server));
  }

  // The snapshot of a server with the caller's spelling of the name.
  std::shared_ptr<const Origin> origin(TextView server) {
    std::shared_ptr<const Origin> mapped;
    {
      const std::shared_lock lock(mutex_);
      const auto found = servers_.find(automation::lowerCase(server));
      if (found == servers_.end()) failUnknown(server);
      mapped = found->second;
    }
    if (mapped->server == server) return mapped;
    return std::make_shared<const Origin>(Origin{mapped->metabase, Text(server)});
  }

 private:
  [[noreturn]] void failUnknown(TextView server) const {
    constexpr std::size_t kMaxNames = 10;
    std::map<Text, std::string> names;
    for (const auto& [key, entry] : servers_) names.emplace(key, automation::toUtf8(entry->server));
    std::string known;
    std::size_t count = 0;
    for (const auto& [key, name] : names) {
      if (count == kMaxNames) {
        known += ", ...";
        break;
      }
      known += (count++ == 0 ? "" : ", ") + name;
    }
    fail(number::kUnknownServer, "unknown server " + quoteForMessage(automation::toUtf8(server)) + ": " +
                                     (known.empty() ? "no server is known" : "known servers are " + known));
  }

  std::shared_mutex mutex_;
  std::unordered_map<Text, std::shared_ptr<const Origin>> servers_;
};

// Serves "IIS://server/path".
ObjectRef objectAt(TextView moniker) {
  const auto failSyntax = [&] {
    throw Failure(automation::number::kMonikerSyntax,
                  u"invalid moniker '" + Text(moniker) + u"': the form is IIS://server/path", Text(kSource));
  };
  if (!automation::equalsIgnoringCase(moniker.substr(0, kMonikerStart.size()), kMonikerStart)) failSyntax();
  const TextView rest = moniker.substr(kMonikerStart.size());
  const std::size_t slash = rest.find(u'/');
  const TextView server = rest.substr(0, slash);
  if (server.empty()) failSyntax();
  std::shared_ptr<const Origin> origin = Servers::process().origin(server);
  const Metabase& metabase = *origin->metabase;
  std::optional<Metabase::NodeId> node = metabase.child(metabase.root(), kLocalMachine);
  if (node && slash != TextView::npos) {
    const TextView path = rest.substr(slash + 1);
    node = path.empty() ? std::nullopt : metabase.find(*node, path);
  }
  if (!node) {
    fail(
        number::kPathNotFound,
        toSingleLine("IIS://" + automation::toUtf8(moniker.substr(kMonikerStart.size()))) + ": no such node");
  }
  return makeNodeObject(std::move(origin), *node);
}

}  // namespace

void mapServer(TextView server, std::shared_ptr<const Metabase> snapshot) {
  Servers::process().map(server, std::move(snapshot));
}

void unmapServer(TextView server) {
  Servers::process().unmap(server);
}

std::shared_ptr<const Metabase> snapshotOf(TextView server) {
  return Servers::process().origin(server)->metabase;
}

void registerMoniker() {
  automation::Runtime::process().serveMoniker(u"IIS:", objectAt);
}

}  // namespace platform::metabase
