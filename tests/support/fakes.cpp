#include "tests/support/fakes.h"

#include <algorithm>
#include <utility>

#include "automation/failure.h"

namespace test {

using namespace automation;

namespace {

class ListWalk final : public Walk {
 public:
  explicit ListWalk(std::vector<std::shared_ptr<FakeObject>> objects) : objects_(std::move(objects)) {}
  ObjectRef next() override { return at_ < objects_.size() ? objects_[at_++] : nullptr; }

 private:
  std::vector<std::shared_ptr<FakeObject>> objects_;
  std::size_t at_ = 0;
};

}  // namespace

FakeObject& FakeObject::set(TextView property, Variant value) {
  properties_[lowerCase(property)] = std::move(value);
  return *this;
}

FakeObject& FakeObject::unset(TextView property) {
  properties_.erase(lowerCase(property));
  return *this;
}

FakeObject& FakeObject::method(TextView name, Method method) {
  methods_[lowerCase(name)] = std::move(method);
  return *this;
}

Variant FakeObject::get(TextView property) const {
  const auto found = properties_.find(lowerCase(property));
  if (found == properties_.end())
    throw Failure(static_cast<std::int32_t>(0x80005006), u"No property " + Text(property), u"FakeObject");
  return found->second;
}

std::shared_ptr<FakeObject> FakeObject::find(TextView name) const {
  for (const auto& child : children_) {
    if (equalsIgnoringCase(toText(child->get(u"Name")), name)) return child;
  }
  return nullptr;
}

FakeObject& FakeObject::add(TextView name) {
  children_.push_back(std::make_shared<FakeObject>());
  return children_.back()->set(u"Name", name);
}

Variant FakeObject::read(TextView member, Arguments) {
  return get(member);
}

void FakeObject::write(TextView member, Arguments, const Variant& value) {
  get(member);
  set(member, value);
}

Variant FakeObject::call(TextView member, Arguments arguments) {
  const auto found = methods_.find(lowerCase(member));
  if (found != methods_.end()) return found->second(arguments);
  if (!equalsIgnoringCase(member, u"GetEx")) failMember(member, u"FakeObject");
  return get(toText(arguments[0]));
}

std::unique_ptr<Walk> FakeObject::children() {
  return std::make_unique<ListWalk>(children_);
}

Variant texts(const std::vector<Text>& elements) {
  Array array;
  array.elements.assign(elements.begin(), elements.end());
  return array;
}

}  // namespace test
