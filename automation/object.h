// The one door to everything outside the component: an object whose members are found by name while the
// program runs. What to know before writing on either side of it:
//
//   Members   are found by name, without regard to case. Each call of one of the four operations of Object is
//             one operation on the outside, so an object that stands between the component and another one
//             sees, counts, records or fails every single one.
//   Failures  are thrown as Failure and as nothing else. automation/failure.h lists their numbers and who
//             raises each. An operation that failed has changed nothing but what its object's rules say.
//   Values    are Variants: automation/variant.h tells how each kind reads as a text or a number. Text is
//             counted UTF-16, in any form that an automation string can have.
//   Threads   An object stays with the thread that created it, and so do its walks and what it gives. Only
//             the runtime's table (automation/runtime.h) is there for all threads.
//   Lifetime  The functions below hold a reference of their own until the call returns: a member may take
//             away the last reference that its caller has. Whoever calls a member of Object itself sees to
//             that. Names, arguments and values belong to the caller, who leaves them alone until the call
//             returns; an object copies what it keeps. A walk keeps alive what it needs of its object.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <utility>

#include "automation/failure.h"
#include "automation/text.h"
#include "automation/variant.h"
#include "automation/visibility.h"

namespace automation {

// The arguments of a member, by reference: a method that returns something through an argument writes it
// there.
using Arguments = std::span<Variant>;

// A walk over the children of an object, in the order in which the object keeps them.
class AUTOMATION_VISIBLE Walk {
 public:
  virtual ~Walk() = default;

  // The next child, or null when there is none left. Throws Failure; what a further call then gives is not
  // settled, so a caller ends its walk.
  virtual ObjectRef next() = 0;
};

// An object of somebody else's. Each operation fails with 438 for a member that the object does not have,
// with 450 for arguments that do not fit the member, with any other number for a reason of the object's own.
class AUTOMATION_VISIBLE Object {
 public:
  virtual ~Object() = default;

  // Reads a property, indexed where arguments are given.
  virtual Variant read(TextView member, Arguments arguments) = 0;

  // Writes a property, indexed where arguments are given.
  virtual void write(TextView member, Arguments arguments, const Variant& value) = 0;

  // Calls a method. Returns its result, or Empty where it has none.
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

void writeWith(const ObjectRef& object, TextView member, Arguments arguments, const Variant& value);

// A method with its arguments by value.
Variant callWith(const ObjectRef& object, TextView member, Arguments arguments);
template <typename... Values>
Variant call(const ObjectRef& object, TextView member, Values&&... values) {
  std::array<Variant, sizeof...(Values)> arguments{Variant(std::forward<Values>(values))...};
  return callWith(object, member, arguments);
}

// A method with one argument by reference, which holds the method's answer when the call returns.
Variant callByReference(const ObjectRef& object, TextView member, Variant& argument);

// Fails with 450 where a member takes fewer arguments than `needed` or more than `taken`. `source` is what
// the failure names.
inline void requireArguments(TextView member, Arguments arguments, std::size_t needed, std::size_t taken,
                             TextView source) {
  if (arguments.size() < needed || arguments.size() > taken) {
    failArguments(member, taken, arguments.size(), source);
  }
}

// The same where a member takes so many, no fewer and no more.
inline void requireArguments(TextView member, Arguments arguments, std::size_t count, TextView source) {
  requireArguments(member, arguments, count, count, source);
}

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
