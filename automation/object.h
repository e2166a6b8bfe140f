// The one door to everything outside the component: an object whose members are found by name while the
// program runs.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <utility>

#include "automation/text.h"
#include "automation/variant.h"
#include "automation/visibility.h"

namespace automation {

// The arguments of a member, by reference: a method that gives something back writes it into its argument.
using Arguments = std::span<Variant>;

// A walk over the children of an object, in the order in which their owner keeps them.
class AUTOMATION_VISIBLE Walk {
 public:
  virtual ~Walk() = default;

  // The next child, or null when there is none left. Throws Failure; what a further call then gives is not
  // settled, so a caller ends its walk.
  virtual ObjectRef next() = 0;
};

// An object of somebody else's. Member names are compared without regard to case. Every operation fails by
// throwing Failure: 438 for a member that the object does not have, 450 for arguments that do not fit the
// member, any other number for a reason of the object's own. An operation that failed has changed nothing but
// what its object's rules say. Called on the thread that created the object and on no other.
//
// Each call of one of these four is one operation on the outside, so an object that stands between the
// component and another one sees, counts, records or fails every single operation.
class AUTOMATION_VISIBLE Object {
 public:
  virtual ~Object() = default;

  // Reads a property, indexed where arguments are given.
  virtual Variant read(TextView member, Arguments arguments) = 0;

  // Writes a property, indexed where arguments are given.
  virtual void write(TextView member, Arguments arguments, const Variant& value) = 0;

  // Calls a method. Gives its result, or Empty where it has none.
  virtual Variant call(TextView member, Arguments arguments) = 0;

  // Begins a walk over the children. The walk keeps what it needs of the object alive.
  virtual std::unique_ptr<Walk> children() = 0;
};

// The same operations on a reference, which fail with 91 where it is null. This is how the component calls
// them.
Variant read(const ObjectRef& object, TextView member);
void write(const ObjectRef& object, TextView member, const Variant& value);
std::unique_ptr<Walk> children(const ObjectRef& object);

// An indexed property.
Variant readIndexed(const ObjectRef& object, TextView member, Variant index);
void writeIndexed(const ObjectRef& object, TextView member, Variant index, const Variant& value);

// A method with its arguments by value.
Variant callWith(const ObjectRef& object, TextView member, Arguments arguments);
template <typename... Values>
Variant call(const ObjectRef& object, TextView member, Values&&... values) {
  std::array<Variant, sizeof...(Values)> arguments{Variant(std::forward<Values>(values))...};
  return callWith(object, member, arguments);
}

// A method with one argument by reference, which holds what the method gave when the call returns.
Variant callByReference(const ObjectRef& object, TextView member, Variant& argument);

// An object that has no member at all: a base for objects that have some. `source` is what its failures name.
class AUTOMATION_VISIBLE MemberlessObject : public Object {
 public:
  explicit MemberlessObject(Text source) : source_(std::move(source)) {}

  Variant read(TextView member, Arguments arguments) override;
  void write(TextView member, Arguments arguments, const Variant& value) override;
  Variant call(TextView member, Arguments arguments) override;
  std::unique_ptr<Walk> children() override;

 protected:
  const Text& source() const { return source_; }

 private:
  Text source_;
};

}  // namespace automation
