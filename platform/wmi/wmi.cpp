#include "platform/wmi/wmi.h"

#include <array>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/node_object.h"
#include "platform/metabase/servers.h"
#include "platform/wmi/applications.h"

namespace platform::wmi {
namespace {

using automation::Arguments;
using automation::equalsIgnoringCase;
using automation::Failure;
using automation::MemberlessObject;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;
using automation::Variant;
using metabase::Metabase;

// "WMI Error Constants".
constexpr auto kInvalidNamespace = static_cast<std::int32_t>(0x8004100E);
constexpr auto kInvalidClass = static_cast<std::int32_t>(0x80041010);
constexpr auto kInvalidQuery = static_cast<std::int32_t>(0x80041017);

constexpr TextView kSource = u"WMI";
constexpr TextView kPrefix = u"winmgmts:";
constexpr TextView kSecurity = u"{authenticationLevel=pktPrivacy}";
constexpr TextView kNamespace = u"root\\microsoftiisv2";
constexpr TextView kPoolClass = u"IIsApplicationPool";
constexpr TextView kPoolNamePrefix = u"W3SVC/APPPOOLS/";
constexpr TextView kPools = u"LM/W3SVC/AppPools";

// The snapshot, and the server's name as spelled by the caller.
using Source = std::shared_ptr<const metabase::Origin>;

// One instance of IIsApplicationPool.
class Pool : public MemberlessObject {
 public:
  Pool(Source origin, Metabase::NodeId node)
      : MemberlessObject(Text(kSource)), origin_(std::move(origin)), node_(node) {}

  Variant read(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, u"Name")) return MemberlessObject::read(member, arguments);
    automation::requireArguments(member, arguments, 0, kSource);
    return Text(kPoolNamePrefix) + shortName();
  }

  Variant call(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, u"EnumAppsInPool")) return MemberlessObject::call(member, arguments);
    automation::requireArguments(member, arguments, 1, kSource);
    automation::Array paths;
    // Keeps the index, and so its list, alive.
    const auto applications = Applications::of(origin_->metabase, origin_->server);
    for (const Metabase::NodeId application : applications->inPool(shortName())) {
      paths.elements.emplace_back(automation::fromUtf8(metabase().path(application) + "/"));
    }
    if (paths.elements.empty()) paths.elements.emplace_back(Text());
    arguments[0] = std::move(paths);
    return {};
  }

 private:
  const Metabase& metabase() const { return *origin_->metabase; }
  Text shortName() const { return automation::fromUtf8(metabase().name(node_)); }

  Source origin_;
  Metabase::NodeId node_;
};

class PoolWalk : public automation::Walk {
 public:
  explicit PoolWalk(Source origin) : origin_(std::move(origin)) {
    const auto pools = metabase().find(metabase().root(), kPools);
    if (pools) next_ = metabase().firstChild(*pools);
  }

  ObjectRef next() override {
    while (next_) {
      const Metabase::NodeId node = *next_;
      next_ = metabase().nextSibling(node);
      if (metabase::equalFolded(metabase().className(node), kPoolClass)) {
        return std::make_shared<Pool>(origin_, node);
      }
    }
    return nullptr;
  }

 private:
  const Metabase& metabase() const { return *origin_->metabase; }

  Source origin_;
  std::optional<Metabase::NodeId> next_;
};

// The result of ExecQuery.
class PoolCollection : public MemberlessObject {
 public:
  explicit PoolCollection(Source origin) : MemberlessObject(Text(kSource)), origin_(std::move(origin)) {}

  Variant read(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, u"Count")) return MemberlessObject::read(member, arguments);
    automation::requireArguments(member, arguments, 0, kSource);
    std::int32_t count = 0;
    for (PoolWalk walk(origin_); walk.next() != nullptr;) ++count;
    return count;
  }

  std::unique_ptr<automation::Walk> children() override { return std::make_unique<PoolWalk>(origin_); }

 private:
  Source origin_;
};

std::vector<TextView> wordsOf(TextView text) {
  constexpr TextView kSpace = u" \t\r\n";
  std::vector<TextView> words;
  for (std::size_t start = text.find_first_not_of(kSpace); start != TextView::npos;
       start = text.find_first_not_of(kSpace, start)) {
    const std::size_t end = std::min(text.find_first_of(kSpace, start), text.size());
    words.push_back(text.substr(start, end - start));
    start = end;
  }
  return words;
}

void requirePoolQuery(const Text& query) {
  const std::vector<TextView> words = wordsOf(query);
  const bool selects =
      words.size() >= 4 && equalsIgnoringCase(words[0], u"select") && equalsIgnoringCase(words[2], u"from");
  if (selects && words.size() == 4 && !equalsIgnoringCase(words[3], kPoolClass)) {
    throw Failure(kInvalidClass, u"Invalid class: " + Text(words[3]), Text(kSource));
  }
  if (!selects || words.size() != 4 || !equalsIgnoringCase(words[1], u"Name")) {
    throw Failure(kInvalidQuery,
                  u"Invalid query; only \"Select Name From IIsApplicationPool\" is supported: " + query,
                  Text(kSource));
  }
}

// The namespace service of a server.
class Service : public MemberlessObject {
 public:
  explicit Service(Source origin) : MemberlessObject(Text(kSource)), origin_(std::move(origin)) {}

  Variant call(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, u"ExecQuery")) return MemberlessObject::call(member, arguments);
    automation::requireArguments(member, arguments, 1, kSource);
    requirePoolQuery(automation::toText(arguments[0]));
    return ObjectRef(std::make_shared<PoolCollection>(origin_));
  }

 private:
  Source origin_;
};

// Removes the prefix `start` of `text`, ignoring case. Returns whether it was there.
bool consumePrefix(TextView& text, TextView start) {
  if (!equalsIgnoringCase(text.substr(0, start.size()), start)) return false;
  text.remove_prefix(start.size());
  return true;
}

ObjectRef serviceAt(TextView moniker) {
  TextView rest = moniker;
  if (consumePrefix(rest, kPrefix)) consumePrefix(rest, kSecurity);
  const bool named = consumePrefix(rest, u"\\\\");
  const std::size_t end = rest.find(u'\\');
  const TextView server = rest.substr(0, end);
  if (!named || server.empty()) {
    throw Failure(automation::number::kMonikerSyntax,
                  u"invalid moniker '" + Text(moniker) +
                      u"': the form is winmgmts:{authenticationLevel=pktPrivacy}\\\\server\\namespace",
                  Text(kSource));
  }
  const TextView space = end == TextView::npos ? TextView() : rest.substr(end + 1);
  if (!equalsIgnoringCase(space, kNamespace)) {
    throw Failure(kInvalidNamespace, u"Invalid namespace: " + Text(space), Text(kSource));
  }
  return std::make_shared<Service>(
      std::make_shared<const metabase::Origin>(metabase::Origin{metabase::snapshotOf(server), Text(server)}));
}

}  // namespace

void registerMoniker() {
  automation::Runtime::process().serveMoniker(kPrefix, serviceAt);
}

}  // namespace platform::wmi
