// An in-process server that replaces the COM objects of a live server: the monikers IIS: and winmgmts:, ADO's
// two classes, the database catalog class and the host's common object, each implemented by the platform
// layer. It is registered only in a test's own Wine prefix.
//
// The environment variable TORVIN_TEST_METABASES lists the served NAME=FILE, separated by semicolons. The
// object "TORVINTest.Control" controls it further:
//
//   Record failAt    starts recording each operation on its objects, and fails the operation with this
//                    number (0: none), or each operation with this text; clears the record
//   Operations       the recorded operations, one per line

#include <array>
#include <mutex>

#include "automation/com/dispatch_object.h"
#include "automation/com/exposed_object.h"
#include "automation/com/failures.h"
#include "automation/com/implementation.h"
#include "automation/com/runtime.h"
#include "automation/runtime.h"
#include "platform/desktop/desktop.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
#include "platform/wmi/wmi.h"
#include "sqlite/database.h"
#include "tests/support/journal.h"

namespace test {
namespace {

using namespace automation;
using com::Implementation;
using com::Pointer;

// Records nothing until requested; then for one thread only.
std::shared_ptr<Journal> journal;

class Control : public MemberlessObject {
 public:
  Control() : MemberlessObject(u"TORVINTest.Control") {}

  Variant read(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, u"Operations")) return MemberlessObject::read(member, arguments);
    std::string lines;
    for (const std::string& line : journal->lines) lines += line + "\n";
    return fromUtf8(lines);
  }

  Variant call(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, u"Record")) return MemberlessObject::call(member, arguments);
    requireArguments(member, arguments, 1, 1, source());
    journal = std::make_shared<Journal>();
    if (const Text* text = arguments[0].as<Text>()) {
      journal->fails = [fails = toUtf8(*text)](std::size_t, const std::string& line) {
        return line == fails;
      };
      return {};
    }
    const auto failAt = static_cast<std::size_t>(toInt32(arguments[0]));
    journal->fails = [failAt](std::size_t number, const std::string&) { return number == failAt; };
    return {};
  }
};

// The database catalog class, as far as the host script needs it.
class Catalog : public MemberlessObject {
 public:
  Catalog() : MemberlessObject(u"ADOX.Catalog") {}

  Variant call(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, u"Create")) return MemberlessObject::call(member, arguments);
    requireArguments(member, arguments, 1, 1, source());
    constexpr TextView kKey = u"Data Source=";
    const Text connection = toText(arguments[0]);
    const std::size_t at = connection.find(kKey);
    if (at == Text::npos) failTypeMismatch();
    const std::string file = toUtf8(TextView(connection).substr(at + kKey.size()));
    try {
      sqlite::Database made(std::u8string(file.begin(), file.end()), sqlite::Database::Mode::kCreate,
                            std::chrono::seconds(1));
      // An empty file is no database yet.
      made.execute("begin; create table made (it); drop table made; commit");
    } catch (const sqlite::Error& error) {
      throw Failure(static_cast<std::int32_t>(0x80004005), fromUtf8(error.what()), source());
    }
    return {};
  }
};

Text environment(const wchar_t* name) {
  Text text(32768, u'\0');
  text.resize(GetEnvironmentVariableW(name, reinterpret_cast<wchar_t*>(text.data()),
                                      static_cast<DWORD>(text.size())));
  return text;
}

void mapServers() {
  const Text all = environment(L"TORVIN_TEST_METABASES");
  for (std::size_t at = 0; at < all.size();) {
    const std::size_t end = std::min(all.find(u';', at), all.size());
    const TextView entry = TextView(all).substr(at, end - at);
    const std::size_t equals = entry.find(u'=');
    if (equals != TextView::npos) {
      platform::metabase::mapServer(entry.substr(0, equals),
                                    platform::metabase::Metabase::load(Text(entry.substr(equals + 1))));
    }
    at = end + 1;
  }
}

void enterLayer() {
  platform::metabase::registerMoniker();
  platform::wmi::registerMoniker();
  platform::store::registerStore();
  platform::desktop::registerDesktop();
  Runtime::process().serveClass(u"ADOX.Catalog", [] { return std::make_shared<Catalog>(); });
  mapServers();
}

ObjectRef objectNamed(TextView moniker) {
  const auto serve = [&] { return GetObject(moniker); };
  return journal != nullptr ? journal->getObject(moniker, serve) : serve();
}

ObjectRef objectOfClass(TextView programmaticId) {
  const auto serve = [&] { return CreateObject(programmaticId); };
  return journal != nullptr ? journal->createObject(programmaticId, serve) : serve();
}

class Parser final : public Implementation<IParseDisplayName> {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(const IID& id, void** found) override {
    *found = nullptr;
    IParseDisplayName* const self = this;
    return offer(id, IID_IUnknown, self, found) || offer(id, IID_IParseDisplayName, self, found)
               ? S_OK
               : E_NOINTERFACE;
  }

  HRESULT STDMETHODCALLTYPE ParseDisplayName(IBindCtx*, LPOLESTR name, ULONG* eaten,
                                             IMoniker** moniker) override {
    *moniker = nullptr;
    try {
      const TextView text(reinterpret_cast<const char16_t*>(name));
      const auto object = com::dispatchOf(objectNamed(text));
      *eaten = static_cast<ULONG>(text.size());
      return CreatePointerMoniker(object.get(), moniker);
    } catch (...) {
      return com::returnErrorObject(com::outgoing({}), IID_IParseDisplayName);
    }
  }
};

struct Class {
  const wchar_t* id;
  const char16_t* name;
  bool isMoniker;
};
constexpr std::array kClasses = {
    Class{L"{8F5F9A52-9D0C-4D0A-9E64-0B3A7C1E5D01}", u"IIS", true},
    Class{L"{8F5F9A52-9D0C-4D0A-9E64-0B3A7C1E5D02}", u"winmgmts", true},
    Class{L"{8F5F9A52-9D0C-4D0A-9E64-0B3A7C1E5D03}", u"ADODB.Connection", false},
    Class{L"{8F5F9A52-9D0C-4D0A-9E64-0B3A7C1E5D04}", u"ADODB.Recordset", false},
    Class{L"{8F5F9A52-9D0C-4D0A-9E64-0B3A7C1E5D05}", u"ADOX.Catalog", false},
    Class{L"{8F5F9A52-9D0C-4D0A-9E64-0B3A7C1E5D06}", u"MARLINSCOPEGLOBALCOM.ICommonFunction", false},
    Class{L"{8F5F9A52-9D0C-4D0A-9E64-0B3A7C1E5D07}", u"TORVINTest.Control", false},
};

CLSID idOf(const Class& each) {
  CLSID id{};
  CLSIDFromString(each.id, &id);
  return id;
}

class Factory final : public Implementation<IClassFactory> {
 public:
  explicit Factory(const Class& made) : made_(made) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(const IID& id, void** found) override {
    *found = nullptr;
    IClassFactory* const self = this;
    return offer(id, IID_IUnknown, self, found) || offer(id, IID_IClassFactory, self, found) ? S_OK
                                                                                             : E_NOINTERFACE;
  }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, const IID& id, void** object) override {
    *object = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    try {
      if (made_.isMoniker) return Pointer<Parser>::adopt(new Parser)->QueryInterface(id, object);
      const TextView name = made_.name;
      const ObjectRef made =
          name == u"TORVINTest.Control" ? std::make_shared<Control>() : objectOfClass(name);
      return com::dispatchOf(made)->QueryInterface(id, object);
    } catch (...) {
      return com::returnErrorObject(com::outgoing({}), IID_IClassFactory);
    }
  }

  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

 private:
  const Class& made_;
};

bool write(const std::wstring& key, const std::wstring& value, const wchar_t* name = nullptr) {
  return RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, value.c_str(),
                         static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
}

}  // namespace
}  // namespace test

using namespace test;

// Kept until the end of the test's prefix.
STDAPI DllCanUnloadNow() {
  return S_FALSE;
}

STDAPI DllGetClassObject(const CLSID& classId, const IID& interfaceId, void** factory) {
  *factory = nullptr;
  try {
    static const bool entered = (com::stayLoaded(), enterLayer(), true);
    static_cast<void>(entered);
    for (const Class& each : kClasses) {
      if (idOf(each) == classId) {
        // Resolving a moniker asks the class object first.
        if (each.isMoniker && interfaceId == IID_IParseDisplayName)
          return Pointer<Parser>::adopt(new Parser)->QueryInterface(interfaceId, factory);
        return Pointer<Factory>::adopt(new Factory(each))->QueryInterface(interfaceId, factory);
      }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
  } catch (...) {
    return automation::com::returnErrorObject(automation::com::outgoing({}), IID_IClassFactory);
  }
}

STDAPI DllRegisterServer() {
  HMODULE module = nullptr;
  wchar_t path[MAX_PATH];
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<const wchar_t*>(&kClasses),
                     &module);
  GetModuleFileNameW(module, path, MAX_PATH);
  for (const Class& each : kClasses) {
    const std::wstring name(reinterpret_cast<const wchar_t*>(each.name));
    const std::wstring key = std::wstring(L"CLSID\\") + each.id;
    if (!write(key, name) || !write(key + L"\\InprocServer32", path) ||
        !write(key + L"\\InprocServer32", L"Both", L"ThreadingModel") || !write(key + L"\\ProgID", name) ||
        !write(name + L"\\CLSID", each.id)) {
      return SELFREG_E_CLASS;
    }
  }
  return S_OK;
}

STDAPI DllUnregisterServer() {
  return S_OK;
}
