// In-memory fakes of the metabase and the host's objects.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "automation/object.h"

namespace test {

// An object with the properties, methods and children that a test adds. Names are case-insensitive.
class FakeObject : public automation::Object {
 public:
  using Method = std::function<automation::Variant(automation::Arguments)>;

  // Reading or writing a property that isn't set fails with 0x80005006.
  FakeObject& set(automation::TextView property, automation::Variant value);
  FakeObject& unset(automation::TextView property);
  FakeObject& method(automation::TextView name, Method method);
  automation::Variant get(automation::TextView property) const;

  std::shared_ptr<FakeObject> find(automation::TextView name) const;
  FakeObject& add(automation::TextView name);

  // GetEx returns a property and is predefined.
  automation::Variant read(automation::TextView member, automation::Arguments arguments) override;
  void write(automation::TextView member, automation::Arguments arguments,
             const automation::Variant& value) override;
  automation::Variant call(automation::TextView member, automation::Arguments arguments) override;
  std::unique_ptr<automation::Walk> children() override;

 private:
  std::map<automation::Text, automation::Variant> properties_;
  std::map<automation::Text, Method> methods_;
  std::vector<std::shared_ptr<FakeObject>> children_;
};

automation::Variant texts(const std::vector<automation::Text>& elements);

}  // namespace test
