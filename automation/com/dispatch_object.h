// Adapts a COM object to automation::Object, through which the component reaches everything outside.
#pragma once

#include <utility>
#include <vector>

#include "automation/com/owned.h"
#include "automation/object.h"

namespace automation::com {

// The object behind an IDispatch: the original one if this library has exposed it, else a DispatchObject.
// Null for null.
ObjectRef objectOf(IDispatch* dispatch);

// Calls its object by name, ignoring case, preferably through IDispatchEx, because script objects may not
// support IDispatch fully. The DISPID of a name is cached.
//
//   read    requests a property or method call, as late binding does
//   write   puts by value; an object by reference first, then by value if that is not supported
//   call    passes texts and Empty by reference and returns what the method stores there; a failed call
//           does not change its arguments
//   children  one at a time from the object's enumerator; 13 for an element that is not an object
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
