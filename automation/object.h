// The interface to everything outside the component: objects whose members are found by name at run time. The
// contract for both sides:
//
//   Members   are found by name, ignoring case. Each call of one of the four operations of Object is one
//             operation on the outside, so that a proxy object can count, record or fail each of them.
//   Failures  are thrown as Failure only. automation/failure.h lists their numbers and origins. A failed
//             operation changes nothing except as documented by its object.
//   Values    are Variants; automation/variant.h defines the conversions. Text is counted UTF-16, which may
//             be malformed.
//   Threads   An object, its walks and the objects it returns are used only by the thread that created it.
//             Only the runtime's table (automation/runtime.h) is shared by threads.
//   Lifetime  The functions below hold a reference until the call returns, because a member may release the
//             caller's last one. Callers of members of Object must do the same. Names, arguments and values
//             belong to the caller, which must not change them until the call returns; an object copies
//             what it keeps. A walk keeps what it needs of its object alive.
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

// The arguments of a member, by reference: a method may return values through them.
using Arguments = std::span<Variant>;

// Iterates over the children of an object, in the object's order.
class AUTOMATION_VISIBLE Walk {
 public:
  virtual ~Walk() = default;

  // The next child, or null after the last. Throws Failure, after which the walk must not be continued.
  virtual ObjectRef next() = 0;
};

// An object outside the component. Operations throw Failure: 438 if the object does not have the member, 450
// for wrong arguments, other numbers for reasons of the object.
class AUTOMATION_VISIBLE Object {
 public:
  virtual ~Object() = default;

  // Reads a property, indexed if there are arguments.
  virtual Variant read(TextView member, Arguments arguments) = 0;

  // Writes a property, indexed if there are arguments.
  virtual void write(TextView member, Arguments arguments, const Variant& value) = 0;

  // Calls a method. Returns its result, or Empty if it has none.
  virtual Variant call(TextView member, Arguments arguments) = 0;

  // Begins a walk over the children.
  virtual std::unique_ptr<Walk> children() = 0;
};

// The same operations on a reference. Throw Failure 91 if it is null. The component uses these.
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

// Calls a method that returns its result through its only argument.
Variant callByReference(const ObjectRef& object, TextView member, Variant& argument);

// Throws Failure 450 from `source` if there are fewer than `needed` or more than `taken` arguments.
inline void requireArguments(TextView member, Arguments arguments, std::size_t needed, std::size_t taken,
                             TextView source) {
  if (arguments.size() < needed || arguments.size() > taken) {
    failArguments(member, taken, arguments.size(), source);
  }
}

// Throws Failure 450 if there are not exactly `count` arguments.
inline void requireArguments(TextView member, Arguments arguments, std::size_t count, TextView source) {
  requireArguments(member, arguments, count, count, source);
}

// A base class whose members all fail. `source` is the source of its failures.
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
