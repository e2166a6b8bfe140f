// The WMI objects and the host's objects, on a small generated file.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "automation/runtime.h"
#include "platform/desktop/desktop.h"
#include "platform/metabase/servers.h"
#include "platform/wmi/wmi.h"
#include "tests/support/failures.h"

namespace {

using namespace automation;

constexpr TextView kService = u"winmgmts:{authenticationLevel=pktPrivacy}\\\\Web01\\root\\microsoftiisv2";
constexpr TextView kQuery = u"Select Name From IIsApplicationPool";

class WmiTest : public testing::Test {
 protected:
  void SetUp() override {
    platform::wmi::registerMoniker();
    platform::desktop::registerDesktop();
  }
  void TearDown() override { platform::metabase::unmapServer(u"Web01"); }

  static void write(const std::string& elements) {
    const std::string bytes = "<configuration><MBProperty>" + elements + "</MBProperty></configuration>";
    platform::metabase::mapServer(u"Web01", platform::metabase::Metabase::parse(bytes, "file"));
  }

  // Every pool's name and its applications: "name=path,path,; ".
  static Text poolsOf(const ObjectRef& service) {
    const ObjectRef pools = toObject(call(service, u"ExecQuery", kQuery));
    Text all;
    std::int32_t count = 0;
    const auto walk = automation::children(pools);
    for (ObjectRef pool = walk->next(); pool != nullptr; pool = walk->next(), ++count) {
      all += toText(read(pool, u"Name")) + u"=";
      Variant list;
      callByReference(pool, u"EnumAppsInPool", list);
      for (const Variant& path : list.asArray()->elements) all += toText(path) + u",";
      all += u"; ";
    }
    EXPECT_EQ(toInt32(read(pools, u"Count")), count);
    return all;
  }
};

TEST_F(WmiTest, PoolsListTheirApplications) {
  write(
      "<IIsApplicationPools Location='/LM/W3SVC/AppPools'/><IIsConfigObject Location='/LM/W3SVC/AppPools/x'/>"
      "<IIsApplicationPool Location='/LM/W3SVC/AppPools/Main'/>"
      "<IIsApplicationPool Location='/LM/w3svc/apppools/Second Pool'/>"
      "<IIsApplicationPool Location='/LM/W3SVC/AppPools/Spare'/>"
      "<IIsWebService Location='/LM/W3SVC' AppPoolId='Main'/>"
      "<IIsWebVirtualDir Location='/LM/W3SVC/1/ROOT' AppRoot='/LM/W3SVC/1/ROOT'/>"
      // Without a root of its own: lists its parent's.
      "<IIsWebDirectory Location='/LM/W3SVC/1/ROOT/img' AppRoot='/LM/W3SVC/1/ROOT'/>"
      "<IIsWebDirectory Location='/LM/W3SVC/1/ROOT/doc'/>"
      "<IIsWebVirtualDir Location='/LM/W3SVC/1/Root/Shop' AppRoot='/lm/w3svc/1/root/shop/' "
      "AppPoolId='second POOL'/>"
      "<IIsWebVirtualDir Location='/LM/W3SVC/1/ROOT/Shop/a/b' AppRoot='/LM/W3SVC/1/ROOT/Shop/a/b'/>"
      "<IIsWebVirtualDir Location='/LM/W3SVC/2/ROOT' AppRoot='/LM/W3SVC/2/ROOT'/>"
      "<IIsWebVirtualDir Location='/LM/W3SVC/3/ROOT' AppRoot='/LM/W3SVC/3/ROOT' AppPoolId='Gone'/>"
      "<IIsConfigObject Location='/LM/OTHER' AppRoot='/LM/OTHER' AppPoolId='Main'/>");
  const TextView pools =
      u"W3SVC/APPPOOLS/Main=/LM/W3SVC/1/ROOT/,/LM/W3SVC/2/ROOT/,; "
      u"W3SVC/APPPOOLS/Second Pool=/LM/W3SVC/1/ROOT/Shop/,/LM/W3SVC/1/ROOT/Shop/a/b/,; "
      u"W3SVC/APPPOOLS/Spare=,; ";
  const ObjectRef service = GetObject(kService);
  EXPECT_EQ(poolsOf(service), pools);
  // A service is a snapshot; a new one reflects the current server.
  write(
      "<IIsApplicationPool Location='/LM/W3SVC/AppPools/Main'/>"
      "<IIsWebVirtualDir Location='/LM/W3SVC/4/ROOT' AppRoot='/LM/W3SVC/4/ROOT' AppPoolId='Main'/>");
  EXPECT_EQ(poolsOf(service), pools);
  EXPECT_EQ(poolsOf(GetObject(kService)), u"W3SVC/APPPOOLS/Main=/LM/W3SVC/4/ROOT/,; ");
  write("");
  EXPECT_EQ(poolsOf(GetObject(kService)), u"");
}

TEST_F(WmiTest, UnsupportedRequestsFailWithDistinctErrors) {
  write("");
  struct Case {
    TextView moniker;
    TextView query;
    std::uint32_t number;
  };
  for (const Case& each :
       {Case{u"WinMgmts:\\\\web01\\ROOT\\MicrosoftIISv2", u"  select  NAME\tfrom iisapplicationpool ", 0},
        Case{u"winmgmts:\\\\Web01\\root\\cimv2", kQuery, 0x8004100E},
        Case{u"winmgmts:\\\\Web01", kQuery, 0x8004100E},
        Case{u"winmgmts:\\\\Web02\\root\\microsoftiisv2", kQuery, 0x800706BA},
        Case{u"winmgmts:{impersonationLevel=x}\\\\Web01\\root\\microsoftiisv2", kQuery, 0x800401E4},
        Case{u"winmgmts:root\\microsoftiisv2", kQuery, 0x800401E4},
        Case{kService, u"Select Name From IIsWebServer", 0x80041010},
        Case{kService, u"Select * From IIsApplicationPool", 0x80041017},
        Case{kService, u"Select Name From IIsApplicationPool Where Name = 'x'", 0x80041017},
        Case{kService, u"", 0x80041017}}) {
    const auto ask = [&] { call(GetObject(each.moniker), u"execquery", each.query); };
    EXPECT_EQ(test::failureNumber(ask), static_cast<std::int32_t>(each.number))
        << toUtf8(each.moniker) << toUtf8(each.query);
  }
}

TEST_F(WmiTest, ProvidesTheHostObjects) {
  const ObjectRef common = CreateObject(u"marlinscopeglobalcom.icommonfunction");
  const auto getos = [&] {
    Variant server = u"web01";
    return *callByReference(common, u"getos", server).as<std::int16_t>();
  };
  write(
      "<IIsWebInfo Location='/LM/W3SVC/Info' MajorIIsVersionNumber='6'/>"
      "<IIsFtpInfo Location='/LM/MSFTPSVC/Info' MajorIIsVersionNumber='5'/>");
  EXPECT_EQ(getos(), 6);
  EXPECT_EQ(toInt16(readIndexed(common, u"GetOS", u"WEB01")), 6);
  write(
      "<IIsWebInfo Location='/LM/W3SVC/Info'/>"
      "<IIsFtpInfo Location='/LM/MSFTPSVC/Info' MajorIIsVersionNumber='5'/>");
  EXPECT_EQ(getos(), 5);
  // A partial export.
  write("<IIsFtpServer Location='/LM/MSFTPSVC/1'/>");
  EXPECT_EQ(getos(), 6);
  write("<IIsWebService Location='/LM/W3SVC'/>");
  EXPECT_EQ(test::failureNumber(getos), static_cast<std::int32_t>(0x80070032));
  write("<IIsWebInfo Location='/LM/W3SVC/Info' MajorIIsVersionNumber='70000'/>");
  EXPECT_EQ(test::failureOf(getos).second,
            "IIS://web01/W3SVC/Info (IIsWebInfo), MajorIIsVersionNumber: Overflow");

  automation::write(common, u"errorlogpath", u"C:\\logs");
  EXPECT_EQ(toText(read(common, u"ErrorLogPath")), u"C:\\logs");
  automation::write(Screen(), u"MousePointer", std::int16_t{11});
  std::int16_t seen = -1;
  std::thread([&] { seen = toInt16(read(Screen(), u"MousePointer")); }).join();
  EXPECT_EQ(seen, 0);
  EXPECT_EQ(toInt16(read(Screen(), u"mousepointer")), 11);
}

}  // namespace
