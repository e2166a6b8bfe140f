#include "automation/com/dispatch_object.h"

#include <algorithm>

#include "automation/com/exposed_object.h"
#include "automation/com/failures.h"
#include "automation/com/values.h"

namespace automation::com {
namespace {

class EnumeratedWalk : public Walk {
 public:
  explicit EnumeratedWalk(Pointer<IEnumVARIANT> children) : children_(std::move(children)) {}

  ObjectRef next() override {
    OwnedValue child;
    ULONG count = 0;
    clearErrorObject();
    const HRESULT code = children_->Next(1, &child.get(), &count);
    if (code < 0) failPlain(code, u"the next child");
    if (code != S_OK || count == 0) return nullptr;
    const Variant value = fromSystem(child.get());
    const auto* object = value.as<ObjectRef>();
    if (object == nullptr || *object == nullptr) failTypeMismatch();
    return *object;
  }

 private:
  Pointer<IEnumVARIANT> children_;
};

// The arguments of a call in COM's order, last one first.
class Parameters {
 public:
  // `byReference`: passes texts and Empty by reference.
  Parameters(Arguments arguments, bool byReference) : arguments_(arguments) {
    const std::size_t count = arguments.size();
    owned_.reserve(count);
    passed_.resize(count);
    for (std::size_t at = 0; at < count; ++at) {
      VARIANT& own = owned_.emplace_back(toSystem(arguments[at])).get();
      VARIANT& passed = passed_[count - 1 - at];
      passed = own;
      if (byReference && V_VT(&own) == VT_BSTR) {
        V_VT(&passed) = VT_BYREF | VT_BSTR;
        V_BSTRREF(&passed) = &V_BSTR(&own);
      } else if (byReference && V_VT(&own) == VT_EMPTY) {
        V_VT(&passed) = VT_BYREF | VT_VARIANT;
        V_VARIANTREF(&passed) = &own;
      }
    }
  }

  // The value to be written is the first argument and is named.
  void addValue(const VARIANT& value) {
    passed_.insert(passed_.begin(), value);
    named_ = true;
  }

  DISPPARAMS get() {
    DISPPARAMS parameters{};
    parameters.rgvarg = passed_.data();
    parameters.cArgs = static_cast<UINT>(passed_.size());
    if (named_) {
      parameters.rgdispidNamedArgs = &put_;
      parameters.cNamedArgs = 1;
    }
    return parameters;
  }

  // Updates the arguments from the values that were returned: all of them, or none if one cannot be
  // converted.
  void copyBack() const {
    std::vector<Variant> back(arguments_.begin(), arguments_.end());
    for (std::size_t at = 0; at < arguments_.size(); ++at) {
      const VARIANT& passed = passed_[passed_.size() - 1 - at];
      if ((V_VT(&passed) & VT_BYREF) == 0) continue;
      const VARIANT& own = owned_[at].get();
      if (const auto* text = arguments_[at].as<Text>();
          text != nullptr && V_VT(&own) == VT_BSTR && viewOf(V_BSTR(&own)) == *text) {
        continue;
      }
      back[at] = fromSystem(own);
    }
    std::ranges::move(back, arguments_.begin());
  }

 private:
  Arguments arguments_;
  std::vector<OwnedValue> owned_;
  std::vector<VARIANT> passed_;
  DISPID put_ = DISPID_PROPERTYPUT;
  bool named_ = false;
};

}  // namespace

ObjectRef objectOf(IDispatch* dispatch) {
  if (dispatch == nullptr) return nullptr;
  if (ObjectRef own = exposedBy(dispatch)) return own;
  return std::make_shared<DispatchObject>(dispatch);
}

DispatchObject::DispatchObject(IDispatch* dispatch)
    : dispatch_(dispatch), extended_(dispatch_.as<IDispatchEx>()) {}

DISPID DispatchObject::numberOfMember(TextView member) {
  const auto known = std::find_if(members_.begin(), members_.end(),
                                  [&](const auto& entry) { return TextView(entry.first) == member; });
  if (known != members_.end()) return known->second;
  DISPID number = DISPID_UNKNOWN;
  HRESULT code = E_NOTIMPL;
  const OwnedText name(member);
  if (extended_) code = extended_->GetDispID(name.get(), fdexNameCaseInsensitive, &number);
  if (!extended_ || code == E_NOTIMPL) {
    BSTR names = name.get();
    code = dispatch_->GetIDsOfNames(IID_NULL, &names, 1, LOCALE_USER_DEFAULT, &number);
  }
  if (code < 0) {
    OwnedException none;
    failCall(code, none.get(), member);
  }
  members_.emplace_back(member, number);
  return number;
}

HRESULT DispatchObject::invoke(DISPID member, WORD kind, DISPPARAMS& parameters, VARIANT* result,
                               EXCEPINFO& exception) {
  if (extended_) {
    const HRESULT code =
        extended_->InvokeEx(member, LOCALE_USER_DEFAULT, kind, &parameters, result, &exception, nullptr);
    if (code != E_NOTIMPL) return code;
  }
  UINT wrong = 0;
  return dispatch_->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, kind, &parameters, result, &exception,
                           &wrong);
}

Variant DispatchObject::read(TextView member, Arguments arguments) {
  const DISPID number = numberOfMember(member);
  Parameters passed(arguments, false);
  DISPPARAMS parameters = passed.get();
  OwnedValue result;
  OwnedException exception;
  const HRESULT code =
      invoke(number, DISPATCH_PROPERTYGET | DISPATCH_METHOD, parameters, &result.get(), exception.get());
  if (code < 0) failCall(code, exception.get(), member);
  return fromSystem(result.get());
}

void DispatchObject::write(TextView member, Arguments arguments, const Variant& value) {
  const DISPID number = numberOfMember(member);
  const OwnedValue owned = toSystem(value);
  Parameters passed(arguments, false);
  passed.addValue(owned.get());
  DISPPARAMS parameters = passed.get();
  if (value.as<ObjectRef>() != nullptr) {
    OwnedException exception;
    const HRESULT code = invoke(number, DISPATCH_PROPERTYPUTREF, parameters, nullptr, exception.get());
    if (code >= 0) return;
    if (code != DISP_E_MEMBERNOTFOUND) failCall(code, exception.get(), member);
  }
  OwnedException exception;
  const HRESULT code = invoke(number, DISPATCH_PROPERTYPUT, parameters, nullptr, exception.get());
  if (code < 0) failCall(code, exception.get(), member);
}

Variant DispatchObject::call(TextView member, Arguments arguments) {
  const DISPID number = numberOfMember(member);
  Parameters passed(arguments, true);
  DISPPARAMS parameters = passed.get();
  OwnedValue result;
  OwnedException exception;
  const HRESULT code = invoke(number, DISPATCH_METHOD, parameters, &result.get(), exception.get());
  if (code < 0) failCall(code, exception.get(), member);
  Variant answer = fromSystem(result.get());
  passed.copyBack();
  return answer;
}

std::unique_ptr<Walk> DispatchObject::children() {
  DISPPARAMS none{};
  OwnedValue result;
  OwnedException exception;
  const HRESULT code =
      invoke(DISPID_NEWENUM, DISPATCH_PROPERTYGET | DISPATCH_METHOD, none, &result.get(), exception.get());
  if (code < 0) failCall(code, exception.get(), u"(children)");
  const VARTYPE type = V_VT(&result.get());
  Pointer<IEnumVARIANT> children;
  if (type == VT_UNKNOWN || type == VT_DISPATCH) {
    children = Pointer<IUnknown>(V_UNKNOWN(&result.get())).as<IEnumVARIANT>();
  }
  if (!children) failTypeMismatch();
  return std::make_unique<EnumeratedWalk>(std::move(children));
}

}  // namespace automation::com
