#include "platform/metabase/node_object.h"

#include <array>
#include <optional>
#include <utility>

#include "automation/failure.h"
#include "platform/metabase/failures.h"

namespace platform::metabase {
namespace {

using automation::Arguments;
using automation::equalsIgnoringCase;
using automation::Failure;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;
using automation::Variant;

// The members that are not metabase properties.
enum class Member { kName, kClass, kAdsPath, kParent, kGet, kGetEx };

// Compares lengths first, because it is called for every property that is read.
std::optional<Member> memberByName(TextView name) {
  switch (name.size()) {
    case 3:
      if (equalsIgnoringCase(name, u"Get")) return Member::kGet;
      break;
    case 4:
      if (equalsIgnoringCase(name, u"Name")) return Member::kName;
      break;
    case 5:
      if (equalsIgnoringCase(name, u"Class")) return Member::kClass;
      if (equalsIgnoringCase(name, u"GetEx")) return Member::kGetEx;
      break;
    case 6:
      if (equalsIgnoringCase(name, u"Parent")) return Member::kParent;
      break;
    case 7:
      if (equalsIgnoringCase(name, u"ADsPath")) return Member::kAdsPath;
      break;
    default:
      break;
  }
  return std::nullopt;
}

class NodeWalk : public automation::Walk {
 public:
  NodeWalk(std::shared_ptr<const Origin> origin, Metabase::NodeId parent)
      : origin_(std::move(origin)), next_(origin_->metabase->firstChild(parent)) {}

  ObjectRef next() override {
    if (!next_) return nullptr;
    const Metabase::NodeId node = *next_;
    next_ = origin_->metabase->nextSibling(node);
    return makeNodeObject(origin_, node);
  }

 private:
  std::shared_ptr<const Origin> origin_;
  std::optional<Metabase::NodeId> next_;
};

class NodeObject : public automation::Object {
 public:
  NodeObject(std::shared_ptr<const Origin> origin, Metabase::NodeId node)
      : origin_(std::move(origin)), node_(node) {}

  Variant read(TextView member, Arguments arguments) override {
    if (const auto own = memberByName(member)) return readMember(*own, member, arguments);
    automation::requireArguments(member, arguments, 0, kSource);
    return property(member);
  }

  // Late binding reads a property with call() too.
  Variant call(TextView member, Arguments arguments) override {
    if (!memberByName(member) && !metabase().property(member)) automation::failMember(member, adsPath());
    return read(member, arguments);
  }

  void write(TextView member, Arguments, const Variant&) override {
    failAt(member, number::kReadOnly, "a metabase snapshot is read-only");
  }

  std::unique_ptr<automation::Walk> children() override { return std::make_unique<NodeWalk>(origin_, node_); }

 private:
  const Metabase& metabase() const { return *origin_->metabase; }
  Text adsPath() const { return automation::fromUtf8(metabase().address(node_, origin_->server)); }

  [[noreturn]] void failAt(TextView property, std::int32_t failureNumber, const char* why) const {
    const std::string name = automation::toUtf8(property);
    fail(failureNumber, metabase().location(node_, origin_->server, name) + ": " + why);
  }

  Variant readMember(Member member, TextView name, Arguments arguments) const {
    const bool method = member == Member::kGet || member == Member::kGetEx;
    automation::requireArguments(name, arguments, method ? 1 : 0, kSource);
    switch (member) {
      case Member::kName:
        return automation::fromUtf8(metabase().name(node_));
      case Member::kClass:
        return automation::fromUtf8(metabase().className(node_));
      case Member::kAdsPath:
        return adsPath();
      case Member::kParent:
        return parentPath();
      case Member::kGet:
        return get(automation::toText(arguments[0]));
      case Member::kGetEx:
        return asArray(get(automation::toText(arguments[0])));
    }
    automation::failMember(name, adsPath());
  }

  // Get and GetEx also read Name, Class, ADsPath and Parent.
  Variant get(const Text& name) const {
    const auto own = memberByName(name);
    if (own && *own != Member::kGet && *own != Member::kGetEx) return readMember(*own, name, {});
    return property(name);
  }

  Variant property(TextView name) const {
    const auto id = metabase().property(name);
    if (!id) failAt(name, number::kPropertyUnknown, "neither the schema nor the file has this property");
    return metabase().read(node_, *id, origin_->server);
  }

  // The result of GetEx: an array, except for a property that is an object.
  static Variant asArray(Variant value) {
    if (value.asArray() != nullptr || value.as<ObjectRef>() != nullptr) return value;
    automation::Array array;
    if (!value.isNull()) array.elements.push_back(std::move(value));
    return array;
  }

  Text parentPath() const {
    const auto parent = metabase().parent(node_);
    if (!parent || *parent == metabase().root()) return u"IIS:";
    return automation::fromUtf8(metabase().address(*parent, origin_->server));
  }

  std::shared_ptr<const Origin> origin_;
  Metabase::NodeId node_;
};

}  // namespace

ObjectRef makeNodeObject(std::shared_ptr<const Origin> origin, Metabase::NodeId node) {
  return std::make_shared<NodeObject>(std::move(origin), node);
}

}  // namespace platform::metabase
