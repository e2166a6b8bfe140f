#include "server/windows/classes.h"

#include <array>
#include <vector>

#include "TORVINFTPAppDataCom.h"
#include "automation/com/dispatch_object.h"
#include "automation/com/failures.h"
#include "automation/com/implementation.h"
#include "automation/com/values.h"
#include "server/dispatch.h"
#include "server/windows/interface.h"

namespace TORVINFTPAppDataCom {
namespace {

using automation::ObjectRef;
using automation::TextView;
using automation::Variant;
using automation::com::Implementation;
using automation::com::Outgoing;
using automation::com::Pointer;

constexpr TextView kSource = u"TORVINFTPAppDataCom";

// Common part of the classes' dual interfaces.
template <typename Dual>
class Automation : public Implementation<Dual, ISupportErrorInfo> {
 public:
  explicit Automation(ObjectRef object) : object_(std::move(object)) { dual(); }

  HRESULT STDMETHODCALLTYPE QueryInterface(const IID& id, void** found) override {
    if (found == nullptr) return E_POINTER;
    *found = nullptr;
    Dual* const self = this;
    ISupportErrorInfo* const errors = this;
    const bool offered =
        this->offer(id, IID_IUnknown, self, found) || this->offer(id, IID_IDispatch, self, found) ||
        this->offer(id, __uuidof(Dual), self, found) || this->offer(id, IID_ISupportErrorInfo, errors, found);
    return offered ? S_OK : E_NOINTERFACE;
  }

  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(const IID& id) override {
    return id == __uuidof(Dual) ? S_OK : S_FALSE;
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (count == nullptr) return E_POINTER;
    *count = 1;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
    if (info == nullptr) return E_POINTER;
    *info = nullptr;
    if (index != 0) return DISP_E_BADINDEX;
    *info = Pointer<ITypeInfo>(dual().typeInfo).release();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetIDsOfNames(const IID& id, LPOLESTR* names, UINT count, LCID,
                                          DISPID* numbers) override {
    if (id != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
    if (names == nullptr || numbers == nullptr) return E_POINTER;
    return dual().typeInfo->GetIDsOfNames(names, count, numbers);
  }

  HRESULT STDMETHODCALLTYPE Invoke(DISPID number, const IID& id, LCID, WORD kind, DISPPARAMS* parameters,
                                   VARIANT* result, EXCEPINFO* exception, UINT*) override {
    if (id != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
    if (parameters == nullptr || (parameters->cArgs > 0 && parameters->rgvarg == nullptr))
      return E_INVALIDARG;
    if (result != nullptr) VariantInit(result);
    const Pointer<Dual> keepsItself(this);
    try {
      return invoke(number, kind, *parameters, result);
    } catch (...) {
      return returnException(automation::com::outgoing(kSource), exception);
    }
  }

 protected:
  // Fails without a description. Clears the error object, which may describe an earlier failure.
  static HRESULT failPointer() {
    automation::com::clearErrorObject();
    return E_POINTER;
  }

  // Runs one call through a slot.
  template <typename Operation>
  HRESULT slot(const Operation& operation) {
    const Pointer<Dual> keepsItself(this);
    try {
      operation();
      return S_OK;
    } catch (...) {
      return returnErrorObject(automation::com::outgoing(kSource), __uuidof(Dual));
    }
  }

  // Calls a method through its slot. A text by reference receives the value that the method leaves in it.
  template <typename... Values>
  HRESULT call(TextView member, Values... values) {
    if ((isNull(values) || ...)) return failPointer();
    return slot([&] { answer(member, values...); });
  }

  // The same for a method with a result.
  template <typename... Values>
  HRESULT callFor(short* result, TextView member, Values... values) {
    if (result == nullptr) return failPointer();
    *result = 0;
    if ((isNull(values) || ...)) return failPointer();
    return slot([&] { *result = automation::toInt16(answer(member, values...)); });
  }

  template <typename... Values>
  HRESULT callFor(BSTR* result, TextView member, Values... values) {
    if (result == nullptr) return failPointer();
    *result = nullptr;
    return slot([&] { *result = automation::com::makeText(automation::toText(answer(member, values...))); });
  }

  HRESULT readText(TextView member, BSTR* value) {
    if (value == nullptr) return failPointer();
    *value = nullptr;
    return slot([&] { *value = automation::com::makeText(automation::toText(object_->read(member, {}))); });
  }

  HRESULT writeText(TextView member, BSTR value) {
    return slot([&] { object_->write(member, {}, Variant(automation::com::viewOf(value))); });
  }

 private:
  // Read once per process.
  static const Interface& dual() {
    static const Interface read = readInterface(__uuidof(Dual));
    return read;
  }

  static bool isNull(const void* reference) { return reference == nullptr; }
  static bool isNull(BSTR) { return false; }
  static bool isNull(LONG) { return false; }
  static bool isNull(short) { return false; }

  static Variant valueOf(BSTR text) { return automation::com::viewOf(text); }
  static Variant valueOf(BSTR* text) { return automation::com::viewOf(*text); }
  static Variant valueOf(IDispatch** object) { return automation::com::objectOf(*object); }
  static Variant valueOf(LONG number) { return std::int32_t{number}; }
  static Variant valueOf(short number) { return std::int16_t{number}; }

  static void copyBack(BSTR* text, const Variant& value) {
    const auto* left = value.as<automation::Text>();
    if (left == nullptr || *left == automation::com::viewOf(*text)) return;
    BSTR made = automation::com::makeText(*left);
    SysFreeString(*text);
    *text = made;
  }
  template <typename Value>
  static void copyBack(Value, const Variant&) {}

  template <typename... Values>
  Variant answer(TextView member, Values... values) {
    std::array<Variant, sizeof...(Values)> arguments{valueOf(values)...};
    Variant result = object_->call(member, arguments);
    std::size_t at = 0;
    (copyBack(values, arguments[at++]), ...);
    return result;
  }

  HRESULT invoke(DISPID number, WORD kind, const DISPPARAMS& parameters, VARIANT* result) {
    const Member* const member = dual().find(number);
    if (member == nullptr) return DISP_E_MEMBERNOTFOUND;
    if ((kind & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0) {
      if (!member->isProperty || (kind & DISPATCH_PROPERTYPUT) == 0) return DISP_E_MEMBERNOTFOUND;
      if (parameters.cArgs != 1) return DISP_E_BADPARAMCOUNT;
      object_->write(member->name, {}, automation::com::fromSystem(parameters.rgvarg[0]));
      return S_OK;
    }
    if (member->isProperty && (kind & DISPATCH_PROPERTYGET) == 0) return DISP_E_MEMBERNOTFOUND;

    std::vector<VARIANT*> given;
    if (const HRESULT code = place(*member, parameters, given); code < 0) return code;
    std::vector<Variant> arguments;
    for (const VARIANT* argument : given) {
      arguments.push_back(argument != nullptr ? automation::com::fromSystem(*argument) : Variant());
    }
    const std::vector<Variant> before = arguments;
    const Variant answered =
        member->isProperty ? object_->read(member->name, arguments) : object_->call(member->name, arguments);
    for (std::size_t at = 0; at < given.size(); ++at) {
      if (given[at] == nullptr || (V_VT(given[at]) & VT_BYREF) == 0) continue;
      if (!automation::com::isSame(before[at], arguments[at])) {
        automation::com::assignThrough(*given[at], arguments[at]);
      }
    }
    if (result != nullptr) *result = automation::com::toSystem(answered).release();
    return S_OK;
  }

  // Orders the arguments by position, named ones by their number. Null represents an omitted one.
  static HRESULT place(const Member& member, const DISPPARAMS& parameters, std::vector<VARIANT*>& given) {
    if (parameters.cArgs > member.taken) return DISP_E_BADPARAMCOUNT;
    if (parameters.cNamedArgs > parameters.cArgs ||
        (parameters.cNamedArgs > 0 && parameters.rgdispidNamedArgs == nullptr)) {
      return E_INVALIDARG;
    }
    given.assign(member.taken, nullptr);
    const UINT named = parameters.cNamedArgs;
    for (UINT at = 0; at < parameters.cArgs; ++at) {
      VARIANT& argument = parameters.rgvarg[at];
      const std::size_t where =
          at < named ? static_cast<std::size_t>(parameters.rgdispidNamedArgs[at]) : parameters.cArgs - 1 - at;
      if (where >= given.size() || given[where] != nullptr) return DISP_E_PARAMNOTFOUND;
      if (!automation::com::isLeftOut(argument)) given[where] = &argument;
    }
    for (std::size_t at = 0; at < member.taken - member.optional; ++at) {
      if (given[at] == nullptr)
        return parameters.cArgs < member.taken ? DISP_E_BADPARAMCOUNT : DISP_E_PARAMNOTOPTIONAL;
    }
    return S_OK;
  }

  ObjectRef object_;
};

class FTPCollectionObject final : public Automation<_FTPCollection> {
 public:
  FTPCollectionObject() : Automation(CreateFTPCollection()) {}

  STDMETHODIMP get_mstrErrorLogPath(BSTR* value) override { return readText(u"mstrErrorLogPath", value); }
  STDMETHODIMP put_mstrErrorLogPath(BSTR value) override { return writeText(u"mstrErrorLogPath", value); }
  STDMETHODIMP GetPropEnabledStatus(short PropVal, BSTR* result) override {
    return callFor(result, u"GetPropEnabledStatus", PropVal);
  }
  STDMETHODIMP GetRootVirtualDirectory(BSTR strServerName, BSTR strId, BSTR strFullPath,
                                       BSTR strDBName) override {
    return call(u"GetRootVirtualDirectory", strServerName, strId, strFullPath, strDBName);
  }
  STDMETHODIMP GetChildVirtualDirectories(BSTR* strServerName, BSTR* strId, BSTR* strPath,
                                          BSTR* strDBName) override {
    return call(u"GetChildVirtualDirectories", strServerName, strId, strPath, strDBName);
  }
  STDMETHODIMP GetFTPSitesCount(BSTR* strIISServerName, short* result) override {
    return callFor(result, u"GetFTPSitesCount", strIISServerName);
  }
  STDMETHODIMP SetErrorLogPath(BSTR strAppErrLogPath, BSTR strErrorLogPath) override {
    return call(u"SetErrorLogPath", strAppErrLogPath, strErrorLogPath);
  }
  STDMETHODIMP WriteToLog(LONG aErrorNumber, BSTR aErrorMessage, BSTR aObjectName,
                          BSTR aFunctionName) override {
    return call(u"WriteToLog", aErrorNumber, aErrorMessage, aObjectName, aFunctionName);
  }
  STDMETHODIMP SetProcessStatusUpdater(IDispatch** objStatusBar, IDispatch** objProgressBar,
                                       IDispatch** objProcessCount) override {
    return call(u"SetProcessStatusUpdater", objStatusBar, objProgressBar, objProcessCount);
  }
  STDMETHODIMP GenerateFTPSiteInfo(BSTR strServerName, BSTR strDBName, short* result) override {
    return callFor(result, u"GenerateFTPSiteInfo", strServerName, strDBName);
  }
  STDMETHODIMP GenerateFTPVirDirInfo(BSTR strBindingPath, short* result) override {
    return callFor(result, u"GenerateFTPVirDirInfo", strBindingPath);
  }
  STDMETHODIMP GetFTPPropertyInfo(BSTR strIISServerName, BSTR strDBName, BSTR StrSelectedTab,
                                  VARIANT_BOOL bSiteLevel, BSTR StrIdentifier) override {
    return call(u"GetFTPPropertyInfo", strIISServerName, strDBName, StrSelectedTab, bSiteLevel,
                StrIdentifier);
  }
};

class AppPoolCollectionObject final : public Automation<_AppPoolCollection> {
 public:
  AppPoolCollectionObject() : Automation(CreateAppPoolCollection()) {}

  STDMETHODIMP get_mstrErrorLogPath(BSTR* value) override { return readText(u"mstrErrorLogPath", value); }
  STDMETHODIMP put_mstrErrorLogPath(BSTR value) override { return writeText(u"mstrErrorLogPath", value); }
  STDMETHODIMP GetMemoryRecyclingProperties(BSTR strServerName, IDispatch** objObject, IDispatch** objCn,
                                            IDispatch** objRs) override {
    return call(u"GetMemoryRecyclingProperties", strServerName, objObject, objCn, objRs);
  }
  STDMETHODIMP GetWebServiceExtension(BSTR strServerName, BSTR strDBName) override {
    return call(u"GetWebServiceExtension", strServerName, strDBName);
  }
  STDMETHODIMP GetAppPoolsCount(BSTR strIISServerName, BSTR strDBName, short* result) override {
    return callFor(result, u"GetAppPoolsCount", strIISServerName, strDBName);
  }
  STDMETHODIMP SetErrorLogPath(BSTR strAppErrLogPath, BSTR strErrorLogPath) override {
    return call(u"SetErrorLogPath", strAppErrLogPath, strErrorLogPath);
  }
  STDMETHODIMP WriteToLog(LONG aErrorNumber, BSTR aErrorMessage, BSTR aObjectName,
                          BSTR aFunctionName) override {
    return call(u"WriteToLog", aErrorNumber, aErrorMessage, aObjectName, aFunctionName);
  }
  STDMETHODIMP EnumAppsInPool(BSTR strServerName, BSTR strDBName, BSTR strSelectedNode) override {
    return call(u"EnumAppsInPool", strServerName, strDBName, strSelectedNode);
  }
  STDMETHODIMP SetProcessStatusUpdater(IDispatch** objStatusBar, IDispatch** objProgressBar,
                                       IDispatch** objProcessCount) override {
    return call(u"SetProcessStatusUpdater", objStatusBar, objProgressBar, objProcessCount);
  }
  STDMETHODIMP GetAppPoolPropertyInfo(BSTR strServerName, BSTR strDBName, BSTR StrSelectedTab,
                                      VARIANT_BOOL bApplicationLevel, BSTR strApplicationPoolName) override {
    return call(u"GetAppPoolPropertyInfo", strServerName, strDBName, StrSelectedTab, bApplicationLevel,
                strApplicationPoolName);
  }
  STDMETHODIMP GetTotalAppPools(BSTR* strIISServerName, short* result) override {
    return callFor(result, u"GetTotalAppPools", strIISServerName);
  }
};

template <typename Class>
HRESULT create(const IID& interfaceId, void** object) noexcept {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  try {
    const auto made = Pointer<Class>::adopt(new Class());
    return made->QueryInterface(interfaceId, object);
  } catch (...) {
    return automation::com::outgoing(kSource).code;
  }
}

}  // namespace

HRESULT createFTPCollection(const IID& interfaceId, void** object) noexcept {
  return create<FTPCollectionObject>(interfaceId, object);
}

HRESULT createAppPoolCollection(const IID& interfaceId, void** object) noexcept {
  return create<AppPoolCollectionObject>(interfaceId, object);
}

}  // namespace TORVINFTPAppDataCom
