// The COM server as hosts use it: by class and interface, through the vtable, by name.

#include <thread>

#include "TORVINFTPAppDataCom.h"
#include "automation/com/runtime.h"
#include "automation/runtime.h"
#include "tests/windows/support.h"

namespace test {
namespace {

namespace component = TORVINFTPAppDataCom;

struct Apartment {
  Apartment() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
  ~Apartment() { CoUninitialize(); }
};

template <typename Interface>
Pointer<Interface> create(const component::Guid& classId) {
  Pointer<Interface> made;
  CoCreateInstance(guid(classId), nullptr, CLSCTX_INPROC_SERVER, __uuidof(Interface), made.putVoid());
  return made;
}

// Calls an entry point of the library.
HRESULT enter(const char* name) {
  using Function = HRESULT(STDAPICALLTYPE*)();
  const HMODULE library = GetModuleHandleW(L"TORVINFTPAppDataCom.dll");
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)))();
}
HRESULT canUnload() {
  return enter("DllCanUnloadNow");
}

// Takes the description of the thread's error object.
std::pair<Text, Text> errorObject() {
  Pointer<IErrorInfo> info;
  if (GetErrorInfo(0, info.put()) != S_OK) return {};
  OwnedText description;
  OwnedText source;
  info->GetDescription(description.address());
  info->GetSource(source.address());
  return {Text(description.view()), Text(source.view())};
}

DISPID numberOf(IDispatch* object, const wchar_t* name) {
  auto* text = const_cast<wchar_t*>(name);
  DISPID number = DISPID_UNKNOWN;
  object->GetIDsOfNames(IID_NULL, &text, 1, 0, &number);
  return number;
}

HRESULT invoke(IDispatch* object, const wchar_t* name, WORD kind, std::vector<VARIANT> arguments,
               std::vector<DISPID> named, VARIANT* result, EXCEPINFO* exception) {
  DISPPARAMS parameters{arguments.data(), named.data(), static_cast<UINT>(arguments.size()),
                        static_cast<UINT>(named.size())};
  return object->Invoke(numberOf(object, name), IID_NULL, 0, kind, &parameters, result, exception, nullptr);
}

TEST(Server, FollowsTheIdentityRules) {
  const Apartment apartment;
  {
    const auto sites = create<_FTPCollection>(component::kFTPCollectionClassId);
    ASSERT_TRUE(sites);
    const auto unknown = sites.as<IUnknown>();
    EXPECT_EQ(sites.as<IDispatch>().as<IUnknown>().get(), unknown.get());
    EXPECT_EQ(sites.as<ISupportErrorInfo>().as<IUnknown>().get(), unknown.get());
    EXPECT_EQ(sites.as<ISupportErrorInfo>()->InterfaceSupportsErrorInfo(__uuidof(_FTPCollection)), S_OK);
    EXPECT_EQ(sites.as<ISupportErrorInfo>()->InterfaceSupportsErrorInfo(__uuidof(_AppPoolCollection)),
              S_FALSE);
    void* other = &other;
    EXPECT_EQ(sites->QueryInterface(__uuidof(_AppPoolCollection), &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(canUnload(), S_FALSE);
  }
  EXPECT_EQ(canUnload(), S_OK);

  Pointer<IClassFactory> factory;
  ASSERT_GE(CoGetClassObject(guid(component::kAppPoolCollectionClassId), CLSCTX_INPROC_SERVER, nullptr,
                             IID_IClassFactory, factory.putVoid()),
            0);
  void* made = &made;
  EXPECT_EQ(factory->CreateInstance(factory.get(), IID_IUnknown, &made), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(made, nullptr);
  EXPECT_EQ(factory->CreateInstance(nullptr, __uuidof(_FTPCollection), &made), E_NOINTERFACE);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  factory->LockServer(TRUE);
  factory.reset();
  EXPECT_EQ(canUnload(), S_FALSE);
  CoGetClassObject(guid(component::kAppPoolCollectionClassId), CLSCTX_INPROC_SERVER, nullptr,
                   IID_IClassFactory, factory.putVoid());
  factory->LockServer(FALSE);
  factory.reset();
  EXPECT_EQ(canUnload(), S_OK);
}

TEST(Server, EverySlotMatchesItsMember) {
  const Apartment apartment;
  const auto sites = create<_FTPCollection>(component::kFTPCollectionClassId);
  const auto pools = create<_AppPoolCollection>(component::kAppPoolCollectionClassId);
  const OwnedText unknown(u"NOBODY");
  const OwnedText none;
  const OwnedText log(u"M:\\slots.log");
  const OwnedText folder(u"M:");
  for (int twice = 0; twice < 2; ++twice) {
    EXPECT_EQ(sites->SetErrorLogPath(folder.get(), log.get()), S_OK);
    EXPECT_EQ(pools->SetErrorLogPath(folder.get(), log.get()), S_OK);
  }
  OwnedText path;
  EXPECT_EQ(sites->get_mstrErrorLogPath(path.address()), S_OK);
  EXPECT_EQ(path.view(), u"M:\\slots.log");
  EXPECT_EQ(pools->put_mstrErrorLogPath(log.get()), S_OK);
  OwnedText poolPath;
  EXPECT_EQ(pools->get_mstrErrorLogPath(poolPath.address()), S_OK);
  EXPECT_EQ(poolPath.view(), u"M:\\slots.log");
  EXPECT_EQ(sites->put_mstrErrorLogPath(log.get()), S_OK);
  OwnedText word;
  EXPECT_EQ(sites->GetPropEnabledStatus(0, word.address()), S_OK);
  EXPECT_EQ(word.view(), u"No");
  OwnedText byReference(u"NOBODY");
  short count = 5;
  EXPECT_EQ(sites->GetFTPSitesCount(byReference.address(), &count), S_OK);
  EXPECT_LE(count, 0);
  EXPECT_EQ(pools->GetTotalAppPools(byReference.address(), &count), S_OK);
  EXPECT_EQ(byReference.view(), u"NOBODY");
  EXPECT_EQ(sites->GenerateFTPSiteInfo(unknown.get(), none.get(), &count), S_OK);
  EXPECT_EQ(sites->GenerateFTPVirDirInfo(unknown.get(), &count), S_OK);
  EXPECT_EQ(pools->GetAppPoolsCount(unknown.get(), none.get(), &count), S_OK);
  EXPECT_EQ(sites->GetRootVirtualDirectory(unknown.get(), none.get(), none.get(), none.get()), S_OK);
  EXPECT_EQ(sites->GetFTPPropertyInfo(unknown.get(), none.get(), none.get(), VARIANT_FALSE, nullptr), S_OK);
  EXPECT_EQ(pools->GetAppPoolPropertyInfo(unknown.get(), none.get(), none.get(), VARIANT_TRUE, nullptr),
            S_OK);
  EXPECT_EQ(pools->GetWebServiceExtension(unknown.get(), none.get()), S_OK);
  EXPECT_EQ(pools->EnumAppsInPool(unknown.get(), none.get(), none.get()), S_OK);
  EXPECT_EQ(sites->WriteToLog(1, unknown.get(), none.get(), none.get()), S_OK);
  EXPECT_EQ(pools->WriteToLog(1, unknown.get(), none.get(), none.get()), S_OK);
  IDispatch* bar = nullptr;
  EXPECT_EQ(sites->SetProcessStatusUpdater(&bar, &bar, &bar), S_OK);
  EXPECT_EQ(pools->SetProcessStatusUpdater(&bar, &bar, &bar), S_OK);
  EXPECT_EQ(pools->GetMemoryRecyclingProperties(unknown.get(), &bar, &bar, &bar), S_OK);
  OwnedText a, b, c, d;
  EXPECT_EQ(sites->GetChildVirtualDirectories(a.address(), b.address(), c.address(), d.address()), S_OK);

  EXPECT_EQ(sites->get_mstrErrorLogPath(nullptr), E_POINTER);
  EXPECT_EQ(sites->GetFTPSitesCount(nullptr, &count), E_POINTER);
  EXPECT_EQ(sites->SetProcessStatusUpdater(nullptr, &bar, &bar), E_POINTER);
}

TEST(Server, ReportsFailuresThroughBothInterfaces) {
  const Apartment apartment;
  const auto sites = create<_FTPCollection>(component::kFTPCollectionClassId);
  const OwnedText log(u"M:\\no such folder\\object.log");
  const OwnedText text(u"text");
  sites->put_mstrErrorLogPath(log.get());
  constexpr HRESULT kPathNotFound = static_cast<HRESULT>(0x800A004C);
  EXPECT_EQ(sites->WriteToLog(1, text.get(), text.get(), text.get()), kPathNotFound);
  const auto [description, source] = errorObject();
  EXPECT_NE(description.find(u"M:\\no such folder\\object.log"), Text::npos) << toUtf8(description);
  EXPECT_EQ(source, u"TORVINFTPAppDataCom");

  OwnedException exception;
  const VARIANT argument = valueOf(VT_BSTR, text.get());
  EXPECT_EQ(invoke(sites.get(), L"writetolog", DISPATCH_METHOD,
                   {argument, argument, argument, valueOf(VT_I4, LONG{1})}, {}, nullptr, &exception.get()),
            DISP_E_EXCEPTION);
  EXPECT_EQ(exception.get().scode, kPathNotFound);
  EXPECT_EQ(com::viewOf(exception.get().bstrDescription), description);
  EXPECT_EQ(com::viewOf(exception.get().bstrSource), u"TORVINFTPAppDataCom");

  // A failure without a description is not reported with that of an earlier one.
  EXPECT_EQ(sites->WriteToLog(1, text.get(), text.get(), text.get()), kPathNotFound);
  EXPECT_EQ(sites->get_mstrErrorLogPath(nullptr), E_POINTER);
  EXPECT_EQ(errorObject().first, u"");
}

TEST(Server, AcceptsArgumentsByNameAndInEveryForm) {
  const Apartment apartment;
  const auto sites = create<_FTPCollection>(component::kFTPCollectionClassId);
  Pointer<ITypeInfo> info;
  ASSERT_EQ(sites->GetTypeInfo(0, 0, info.put()), S_OK);
  wchar_t* names[] = {const_cast<wchar_t*>(L"SetErrorLogPath"), const_cast<wchar_t*>(L"strErrorLogPath"),
                      const_cast<wchar_t*>(L"strAppErrLogPath")};
  DISPID numbers[3];
  ASSERT_EQ(sites->GetIDsOfNames(IID_NULL, names, 3, 0, numbers), S_OK);
  EXPECT_EQ(sites->GetIDsOfNames(IID_NULL, names, 3, 0, nullptr), E_POINTER);
  EXPECT_EQ(sites->GetIDsOfNames(IID_NULL, nullptr, 3, 0, numbers), E_POINTER);
  const OwnedText folder(u"M:");
  OwnedText file(u"M:\\named.log");
  VARIANT byReference;
  V_VT(&byReference) = VT_BYREF | VT_BSTR;
  V_BSTRREF(&byReference) = file.address();
  OwnedException exception;
  EXPECT_EQ(
      invoke(sites.get(), L"SetErrorLogPath", DISPATCH_METHOD, {byReference, valueOf(VT_BSTR, folder.get())},
             {numbers[1], numbers[2]}, nullptr, &exception.get()),
      S_OK);
  const ObjectRef object = com::objectOf(sites.get());
  EXPECT_EQ(toText(read(object, u"MSTRERRORLOGPATH")), u"M:\\named.log");

  // A method read like a property, and every kind of invalid argument.
  EXPECT_EQ(toText(readIndexed(object, u"GetPropEnabledStatus", u"-1")), u"Yes");
  EXPECT_EQ(failureNumber([&] { call(object, u"GetPropEnabledStatus", u"many"); }), 13);
  EXPECT_EQ(failureNumber([&] { call(object, u"GetPropEnabledStatus", 70000); }), 6);
  EXPECT_EQ(failureNumber([&] { call(object, u"GetPropEnabledStatus", Null); }), 94);
  EXPECT_EQ(failureNumber([&] { call(object, u"SetProcessStatusUpdater", 1, 2, 3); }), 13);
  EXPECT_EQ(failureNumber([&] { call(object, u"SetErrorLogPath", u"M:"); }), 450);
  EXPECT_EQ(failureNumber([&] { call(object, u"SetErrorLogPath", u"a", u"b", u"c"); }), 450);
  EXPECT_EQ(failureNumber([&] { call(object, u"IncrementProgressBar"); }), 438);
  EXPECT_EQ(failureNumber([&] { write(object, u"GetFTPSitesCount", 1); }), 438);
  // Only the last argument is optional.
  const VARIANT leftOut = valueOf(VT_ERROR, SCODE{DISP_E_PARAMNOTFOUND});
  const VARIANT text = valueOf(VT_BSTR, folder.get());
  EXPECT_EQ(
      invoke(sites.get(), L"GetFTPPropertyInfo", DISPATCH_METHOD,
             {leftOut, valueOf(VT_BOOL, VARIANT_FALSE), text, text, text}, {}, nullptr, &exception.get()),
      S_OK);
  const VARIANT reference = valueOf(VT_BYREF | VT_VARIANT, &leftOut);
  for (const VARIANT& none : {leftOut, reference, valueOf(VT_BYREF | VT_ERROR, &V_ERROR(&leftOut))}) {
    EXPECT_LT(
        invoke(sites.get(), L"GetFTPPropertyInfo", DISPATCH_METHOD,
               {text, valueOf(VT_BOOL, VARIANT_FALSE), none, text, text}, {}, nullptr, &exception.get()),
        0);
  }
}

// A host that calls through the type information, which uses the vtable; and references to no object.
TEST(Server, WorksThroughTypeInformation) {
  const Apartment apartment;
  const auto sites = create<_FTPCollection>(component::kFTPCollectionClassId);
  Pointer<ITypeInfo> info;
  ASSERT_EQ(sites->GetTypeInfo(0, 0, info.put()), S_OK);
  VARIANT truth = valueOf(VT_BOOL, VARIANT_TRUE);
  DISPPARAMS parameters{&truth, nullptr, 1, 0};
  OwnedValue answer;
  OwnedException exception;
  ASSERT_EQ(info->Invoke(sites.get(), numberOf(sites.get(), L"GetPropEnabledStatus"), DISPATCH_METHOD,
                         &parameters, &answer.get(), &exception.get(), nullptr),
            S_OK);
  EXPECT_EQ(com::viewOf(V_BSTR(&answer.get())), u"Yes");

  IDispatch* none = nullptr;
  VARIANT nothing = valueOf(VT_DISPATCH, none);
  EXPECT_EQ(
      invoke(sites.get(), L"SetProcessStatusUpdater", DISPATCH_METHOD,
             {valueOf(VT_BYREF | VT_DISPATCH, &none), valueOf(VT_BYREF | VT_VARIANT, &nothing), nothing}, {},
             nullptr, &exception.get()),
      S_OK);
}

// Many short-lived apartments, each with its own object and log and with a failing call.
TEST(Server, ServesParallelApartments) {
  std::vector<std::thread> threads;
  for (int at = 0; at < 50; ++at) {
    threads.emplace_back([at] {
      const Apartment apartment;
      const ObjectRef sites = CreateObject(u"TORVINFTPAppDataCom.FTPCollection");
      const Text folder = u"M:\\apartment" + decimalText(at);
      CreateDirectoryW(reinterpret_cast<const wchar_t*>(folder.c_str()), nullptr);
      call(sites, u"SetErrorLogPath", folder, folder + u"\\object.log");
      call(sites, u"GetFTPSitesCount", u"NOBODY");
      const Text log = folder + u"\\object.log";
      EXPECT_NE(GetFileAttributesW(reinterpret_cast<const wchar_t*>(log.c_str())), INVALID_FILE_ATTRIBUTES)
          << at;
      CoFreeUnusedLibraries();
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// The system creates the object in another apartment and marshals each call: by name, and through the vtable
// as described by the type library.
TEST(Server, WorksFromAMultithreadedApartment) {
  std::thread([] {
    ASSERT_GE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), 0);
    {
      const auto sites = create<_FTPCollection>(component::kFTPCollectionClassId);
      ASSERT_TRUE(sites);
      OwnedText word;
      EXPECT_EQ(sites->GetPropEnabledStatus(-1, word.address()), S_OK);
      EXPECT_EQ(word.view(), u"Yes");
      OwnedText unknown(u"NOBODY");
      const OwnedText log(u"M:\\no such folder\\object.log");
      EXPECT_EQ(sites->put_mstrErrorLogPath(log.get()), S_OK);
      short count = 5;
      EXPECT_EQ(sites->GetFTPSitesCount(unknown.address(), &count), static_cast<HRESULT>(0x800A004C));

      const ObjectRef object = CreateObject(u"TORVINFTPAppDataCom.AppPoolCollection");
      call(object, u"SetErrorLogPath", u"M:", u"M:\\multithreaded.log");
      EXPECT_EQ(toText(read(object, u"mstrErrorLogPath")), u"M:\\multithreaded.log");
      EXPECT_LE(toInt32(call(object, u"GetTotalAppPools", u"NOBODY")), 0);
      EXPECT_NE(GetFileAttributesW(L"M:\\multithreaded.log"), INVALID_FILE_ATTRIBUTES);
    }
    CoUninitialize();
  }).join();
}

// A read-only key, as seen by a user without permission; the destructor deletes it.
class Refused {
 public:
  Refused(const wchar_t* under, const component::Guid& id, const wchar_t* below = L"") {
    wchar_t text[40] = {};
    StringFromGUID2(guid(id), text, 40);
    name_ = std::wstring(under) + text + below;
    RegCreateKeyExW(HKEY_CLASSES_ROOT, name_.c_str(), 0, nullptr, 0, WRITE_DAC | KEY_READ, nullptr, &key_,
                    nullptr);
    allow(KEY_READ);
  }
  ~Refused() {
    allow(KEY_ALL_ACCESS);
    RegCloseKey(key_);
    RegDeleteTreeW(HKEY_CLASSES_ROOT, name_.c_str());
  }
  Refused(const Refused&) = delete;
  Refused& operator=(const Refused&) = delete;

 private:
  // Read access for everyone, no write access.
  void allow(DWORD rights) {
    alignas(SID) BYTE everyone[SECURITY_MAX_SID_SIZE];
    alignas(ACL) BYTE list[128];
    DWORD size = sizeof everyone;
    SECURITY_DESCRIPTOR descriptor;
    ASSERT_TRUE(CreateWellKnownSid(WinWorldSid, nullptr, everyone, &size));
    ASSERT_TRUE(InitializeAcl(reinterpret_cast<ACL*>(list), sizeof list, ACL_REVISION));
    ASSERT_TRUE(AddAccessAllowedAce(reinterpret_cast<ACL*>(list), ACL_REVISION, rights, everyone));
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, reinterpret_cast<ACL*>(list), FALSE));
    EXPECT_EQ(RegSetKeySecurity(key_, DACL_SECURITY_INFORMATION, &descriptor), ERROR_SUCCESS);
  }

  std::wstring name_;
  HKEY key_ = nullptr;
};

TEST(Server, RollsBackAFailedRegistration) {
  const Apartment apartment;
  const Pointer<IUnknown> holder =
      create<IUnknown>(component::kFTPCollectionClassId);  // keeps the library loaded
  const auto isEntered = [](const wchar_t* name) {
    CLSID id;
    HKEY key = nullptr;
    if (CLSIDFromProgID(name, &id) >= 0) return true;
    const bool isThere = RegOpenKeyExW(HKEY_CLASSES_ROOT, name, 0, KEY_READ, &key) == ERROR_SUCCESS;
    RegCloseKey(key);
    return isThere;
  };
  const auto expectNothing = [&] {
    EXPECT_FALSE(isEntered(L"TORVINFTPAppDataCom.FTPCollection"));
    EXPECT_FALSE(isEntered(L"TORVINFTPAppDataCom.AppPoolCollection"));
    OwnedText path;
    EXPECT_LT(QueryPathOfRegTypeLib(guid(component::kTypeLibraryId), 1, 0, LOCALE_NEUTRAL, path.address()),
              0);
  };
  ASSERT_EQ(enter("DllUnregisterServer"), S_OK);
  {
    const Refused key(L"CLSID\\", component::kAppPoolCollectionClassId);
    EXPECT_EQ(enter("DllRegisterServer"), SELFREG_E_CLASS);
    expectNothing();
  }
  {
    const Refused key(L"TypeLib\\", component::kTypeLibraryId, L"\\1.0");
    EXPECT_EQ(enter("DllRegisterServer"), SELFREG_E_TYPELIB);
    expectNothing();
  }
  EXPECT_EQ(enter("DllRegisterServer"), S_OK);
  EXPECT_TRUE(isEntered(L"TORVINFTPAppDataCom.AppPoolCollection"));
}

class Environment : public testing::Environment {
 public:
  void SetUp() override { com::bindRuntime(); }
};
const auto* const environment = testing::AddGlobalTestEnvironment(new Environment);

}  // namespace
}  // namespace test
