// Somebody's COM object as an automation object: this is how the component reaches everything outside it.
#pragma once

#include <utility>
#include <vector>

#include "automation/com/owned.h"
#include "automation/object.h"

namespace automation::com {

// The object behind an IDispatch: one of ours where this library has made it, else a DispatchObject. Null for
// null.
ObjectRef objectOf(IDispatch* dispatch);

// Calls its object by name: through IDispatchEx where the object has it, since the objects of a script may
// answer no other, without regard to case. A name's number is looked up once.
//
//   read    asks for a property and calls a method at once, as late binding does
//   write   puts by value; an object by reference first, by value where the member has no such way
//   call    hands over texts and Empty by reference, and gives back what the method puts there; a call that
//   fails
//           leaves its arguments as they were
//   children  one at a time from the object's enumerator; one that is no object fails with 13
class DispatchObject : public Object {
 public:
  explicit DispatchObject(IDispatch* dispatch);

  Variant read(TextView member, Arguments arguments) override;
  void write(TextView member, Arguments arguments, const Variant& value) override;
  Variant call(TextView member, Arguments arguments) override;
  std::unique_ptr<Walk> children() override;

  IDispatch* dispatch() const { return dispatch_.get(); }

 private:
  DISPID numberOfMember(TextView member);
  HRESULT invoke(DISPID member, WORD kind, DISPPARAMS& parameters, VARIANT* result, EXCEPINFO& exception);

  Pointer<IDispatch> dispatch_;
  Pointer<IDispatchEx> extended_;
  std::vector<std::pair<Text, DISPID>> members_;
};

}  // namespace automation::com
