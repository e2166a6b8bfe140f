// The in-process server: entry points, class factories, and late-bound objects.

#include "server/portable/server.h"

#include <gtest/gtest.h>

#include "automation/runtime.h"
#include "tests/support/environment.h"
#include "tests/support/failures.h"

namespace test {
namespace {

using namespace automation;
using namespace TORVINFTPAppDataCom;

template <typename... Values>
std::int32_t numberOf(const ObjectRef& object, TextView member, Values... values) {
  return failureNumber([&] { call(object, member, values...); });
}

class Server : public testing::Test {
 protected:
  Server() { DllRegisterServer(); }
  ~Server() override { DllUnregisterServer(); }
};

TEST_F(Server, ProvidesAFactoryPerClass) {
  const struct {
    Guid classId, interfaceId, otherInterfaceId;
    const char16_t* member;
  } cases[] = {
      {kFTPCollectionClassId, kFTPCollectionInterfaceId, kAppPoolCollectionInterfaceId, u"GetFTPSitesCount"},
      {kAppPoolCollectionClassId, kAppPoolCollectionInterfaceId, kFTPCollectionInterfaceId,
       u"GetTotalAppPools"},
  };
  for (const auto& each : cases) {
    void* pointer = nullptr;
    ASSERT_EQ(DllGetClassObject(each.classId, kClassFactoryInterfaceId, &pointer), kOk);
    auto* factory = static_cast<ClassFactory*>(pointer);
    for (const Guid& id : {kUnknownInterfaceId, kDispatchInterfaceId, each.interfaceId}) {
      ObjectRef object;
      ASSERT_EQ(factory->createInstance(id, object), kOk);
      EXPECT_EQ(numberOf(object, each.member), 450) << "a member that lacks its argument";
    }
    ObjectRef object;
    EXPECT_EQ(factory->createInstance(each.otherInterfaceId, object), kNoInterface);
    EXPECT_EQ(DllGetClassObject(each.classId, each.interfaceId, &pointer), kNoInterface);
    EXPECT_EQ(pointer, nullptr);
  }
  void* pointer = &pointer;
  EXPECT_EQ(DllGetClassObject(kTypeLibraryId, kClassFactoryInterfaceId, &pointer), kClassNotAvailable);
  EXPECT_EQ(DllGetClassObject(kFTPCollectionClassId, kClassFactoryInterfaceId, nullptr), kNullPointer);
}

TEST_F(Server, UnloadsWithoutObjectsAndUnregisters) {
  EXPECT_NE(CreateObject(u"torvinftpappdatacom.FTPCollection"), nullptr);
  EXPECT_EQ(DllCanUnloadNow(), kOk);
  ObjectRef object = CreateObject(u"TORVINFTPAppDataCom.AppPoolCollection");
  EXPECT_EQ(DllCanUnloadNow(), kNo);
  object = nullptr;
  void* pointer = nullptr;
  DllGetClassObject(kFTPCollectionClassId, kUnknownInterfaceId, &pointer);
  auto* factory = static_cast<ClassFactory*>(pointer);
  factory->lockServer(true);
  EXPECT_EQ(DllCanUnloadNow(), kNo);
  factory->lockServer(false);
  EXPECT_EQ(DllCanUnloadNow(), kOk);
  EXPECT_EQ(DllUnregisterServer(), kOk);
  EXPECT_THROW(CreateObject(u"TORVINFTPAppDataCom.FTPCollection"), Failure);
  EXPECT_THROW(CreateObject(u"TORVINFTPAppDataCom.AppPoolCollection"), Failure);
}

TEST_F(Server, CallsMembersByNameWithOptionalArguments) {
  Environment environment;
  environment.site(u"1", u"Sales");
  environment.pool(u"Shop");
  const ObjectRef ftp = CreateObject(u"TORVINFTPAppDataCom.FTPCollection");
  const ObjectRef pools = CreateObject(u"TORVINFTPAppDataCom.AppPoolCollection");
  call(ftp, u"seterrorlogpath", environment.database, environment.logFile);
  call(ftp, u"SetProcessStatusUpdater", Variant(), environment.bar, Null);
  EXPECT_EQ(toText(call(ftp, u"GETPROPENABLEDSTATUS", -1)), u"Yes");
  call(ftp, u"GetFTPPropertyInfo", u"WEB01", environment.database, u"General", False);
  EXPECT_EQ(environment.rows(u"tblGeneral").size(), 1u);
  EXPECT_EQ(environment.progress(), (std::vector<std::string>{"bar.Max = 1", "bar.increment()"}));
  call(ftp, u"GetFTPPropertyInfo", u"WEB01", environment.database, u"General", True);
  EXPECT_EQ(environment.journal->lines[environment.journal->lines.size() - 2],
            "GetObject IIS://WEB01/MSFTPSVC/ !");

  // A collector on the public interface, which a host may call.
  write(pools, u"MSTRERRORLOGPATH", read(ftp, u"mstrErrorLogPath"));
  const ObjectRef connection = CreateObject(u"ADODB.Connection");
  const ObjectRef recordset = CreateObject(u"ADODB.Recordset");
  call(connection, u"Open", environment.database);
  write(recordset, u"ActiveConnection", connection);
  write(recordset, u"LockType", 3);
  call(recordset, u"Open", u"Select * from tblMemoryRecycling where 1=2");
  call(pools, u"GetMemoryRecyclingProperties", u"WEB01", GetObject(u"IIS://WEB01/W3SVC/AppPools/Shop"),
       connection, recordset);
  EXPECT_EQ(environment.rows(u"tblMemoryRecycling"),
            std::vector<std::string>{"WEB01|Shop|Enabled|500|Disabled|0"});
  EXPECT_EQ(toInt32(read(recordset, u"State")), 1) << "the caller's, left open";
}

// A status bar that is released during its own call, like a window closed by the user.
TEST_F(Server, ToleratesAProgressObjectReleasingItself) {
  Environment environment;
  environment.site(u"1", u"Sales");
  const ObjectRef ftp = CreateObject(u"TORVINFTPAppDataCom.FTPCollection");
  call(ftp, u"SetErrorLogPath", environment.appLogDirectory, environment.logFile);
  auto bar = std::make_shared<FakeObject>();
  const std::weak_ptr<FakeObject> watched = bar;
  bool alive = false;
  bar->set(u"Max", 0).method(u"increment", [&](Arguments) {
    call(ftp, u"SetProcessStatusUpdater", Null, Null, Null);
    alive = !watched.expired();
    return Variant();
  });
  call(ftp, u"SetProcessStatusUpdater", Null, ObjectRef(std::exchange(bar, nullptr)), Null);
  call(ftp, u"GetFTPPropertyInfo", u"WEB01", environment.database, u"General", False);
  EXPECT_TRUE(alive);
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(environment.log(), "");
}

// Fallbacks of a system binding: servers for unknown monikers and classes, and the encoding of the logs.
TEST_F(Server, UsesRegisteredFallbacks) {
  Environment environment;
  const ObjectRef own = std::make_shared<FakeObject>();
  std::vector<std::string> asked;
  const auto serve = [&](TextView name) {
    asked.push_back(toUtf8(name));
    return own;
  };
  Runtime::process().setFallbacks(serve, serve);
  EXPECT_EQ(GetObject(u"LDAP://unknown"), own);
  EXPECT_EQ(CreateObject(u"Unknown.Class"), own);
  EXPECT_NE(CreateObject(u"TORVINFTPAppDataCom.FTPCollection"), own);
  EXPECT_EQ(asked, (std::vector<std::string>{"LDAP://unknown", "Unknown.Class"}));
  Runtime::process().setFallbacks(nullptr, nullptr);
  EXPECT_THROW(GetObject(u"LDAP://unknown"), Failure);
  EXPECT_THROW(CreateObject(u"Unknown.Class"), Failure);

  setSystemEncoding([](TextView text) {
    std::string bytes;
    for (const char16_t unit : text) bytes += unit < 0x100 ? static_cast<char>(unit) : '?';
    return bytes;
  });
  const ObjectRef ftp = CreateObject(u"TORVINFTPAppDataCom.FTPCollection");
  call(ftp, u"SetErrorLogPath", environment.appLogDirectory, environment.logFile);
  call(ftp, u"WriteToLog", 1, u"Gr\u00F6\u00DFe \u03A9", u"Stra\u00DFe", u"f");
  setSystemEncoding(&toUtf8);
  const auto padded = [](std::string text) { return text + std::string(40 - text.size(), ' ') + "\t"; };
  EXPECT_EQ(environment.log(),
            "<time>\t" + padded("Stra\xDF\x65") + padded("f") + "         1\tGr\xF6\xDF\x65 ?\r\n");
}

TEST_F(Server, RefusesUnknownMembersAndArguments) {
  const ObjectRef ftp = CreateObject(u"TORVINFTPAppDataCom.FTPCollection");
  const ObjectRef pools = CreateObject(u"TORVINFTPAppDataCom.AppPoolCollection");
  for (const char16_t* member : {u"GetTotalAppPools", u"GetServerGeneralProperty", u"GetFTPSitesCoun", u""}) {
    EXPECT_EQ(numberOf(ftp, member, u"WEB01"), 438) << toUtf8(member);
  }
  EXPECT_EQ(numberOf(pools, u"GetHealthProperties", u"WEB01"), 438);
  EXPECT_THROW(write(ftp, u"objStatusBar", Null), Failure);
  EXPECT_THROW(children(ftp), Failure);
  EXPECT_EQ(numberOf(ftp, u"GetFTPPropertyInfo", u"a", u"b", u"c"), 450);
  EXPECT_EQ(numberOf(pools, u"GetAppPoolPropertyInfo", u"a", u"b", u"c", True, u"e", u"f"), 450);
  EXPECT_EQ(numberOf(ftp, u"GetPropEnabledStatus", 32768), 6);
  EXPECT_EQ(numberOf(ftp, u"GetFTPSitesCount", Null), 94);
}

}  // namespace
}  // namespace test
