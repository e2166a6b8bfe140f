// The objects at IIS:// paths, on small generated files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "automation/runtime.h"
#include "fuzz/ip_security_encoder.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/file.h"
#include "platform/metabase/ip_security.h"
#include "platform/metabase/servers.h"
#include "tests/support/failures.h"
#include "tests/support/folder.h"
#include "tests/support/utf16.h"

namespace {

using namespace automation;
using platform::metabase::Metabase;
using test::utf16;
namespace number = platform::metabase::number;

const std::string kHead =
    "\xEF\xBB\xBF<?xml version =\"1.0\"?>\r\n"
    "<configuration xmlns=\"urn:microsoft-catalog:XML_Metabase_V64_0\">\r\n<MBProperty>\r\n";
const std::string kTail = "</MBProperty>\r\n</configuration>\r\n";
const std::string kFile = "MetaBase.xml";

// A value in a form that shows its type: 'text', True, 5, [text|text], null.
std::string shown(const Variant& value) {
  if (value.isNull()) return "null";
  if (const auto* text = value.as<Text>()) return "'" + toUtf8(*text) + "'";
  if (value.asArray() == nullptr) return toUtf8(toText(value));
  std::string all;
  for (const Variant& element : value.asArray()->elements)
    all += (all.empty() ? "" : "|") + toUtf8(toText(element));
  return "[" + all + "]";
}

// The number of the operation's failure, 0 if it succeeds. The message must contain all fragments and
// truncate quoted values, because it is logged.
std::int32_t failureOf(const std::function<void()>& operation,
                       const std::vector<std::string>& fragments = {}) {
  const auto [number, message] = test::failureOf(operation);
  EXPECT_LT(message.size(), 500U);
  for (const std::string& part : fragments) {
    EXPECT_TRUE(number == 0 || message.find(part) != std::string::npos) << message;
  }
  return number;
}

class MetabaseTest : public testing::Test {
 protected:
  void SetUp() override { platform::metabase::registerMoniker(); }
  void TearDown() override { platform::metabase::unmapServer(u"Web01"); }

  // Serves the elements, whose quotes are single for legibility, as the metabase of Web01.
  static void write(std::string elements) {
    std::replace(elements.begin(), elements.end(), '\'', '"');
    platform::metabase::mapServer(u"Web01", Metabase::parse(kHead + elements + kTail, kFile));
  }

  // The object at a moniker, or at a path of Web01.
  static ObjectRef object(const std::string& path) {
    return GetObject(fromUtf8(path.find(':') == 3 ? path : "IIS://Web01" + path));
  }
  // The values of an object's properties, as "Name=value; Name=value".
  static void shows(const ObjectRef& object, const std::string& values) {
    std::istringstream all(values);
    for (std::string each; std::getline(all >> std::ws, each, ';');) {
      const std::size_t equals = each.find('=');
      EXPECT_EQ(shown(read(object, fromUtf8(each.substr(0, equals)))), each.substr(equals + 1)) << each;
    }
  }
  static void shows(const std::string& path, const std::string& values) {
    SCOPED_TRACE(path);
    shows(object(path), values);
  }
  // The failure of getting an object and, if a name is given, reading its property.
  static void fails(const std::string& path, const std::string& name, std::int32_t code,
                    const std::vector<std::string>& fragments) {
    SCOPED_TRACE(path + " " + name);
    const auto get = [&] { name.empty() ? Variant(object(path)) : read(object(path), fromUtf8(name)); };
    EXPECT_EQ(failureOf(get, fragments), code);
  }
  static std::string children(const std::string& path, TextView property = u"Name") {
    std::string values;
    const auto walk = automation::children(object(path));
    while (const ObjectRef child = walk->next()) values += shown(read(child, property));
    return values;
  }
};

TEST_F(MetabaseTest, KeepsTheSpellingOfPathsAndNames) {
  write(R"(<IIsFtpServer Location ='/LM/MSFTPSVC/2/Ü.bung'/><IIsFtpServer Location ='/LM/MSFTPSVC/20'/>
<IIsFtpService	Location ='/LM/msftpsvc'></IIsFtpService>
<IIsFtpServer Location ='/lm/MSFTPSVC/1' ServerComment='one'></IIsFtpServer>
<IIS_Global Location ='.' ChangeNumber='4'/><IIS_ROOT Location ='/'/>)");
  EXPECT_EQ(children(""), "'msftpsvc'");
  EXPECT_EQ(children("/MSFTPSVC"), "'2''20''1'");
  shows("/mSFTPsvc/2", "CLASS='IIsFtpServer'");
  shows("/msftpsvc/2/ü.BUNG", "Name='Ü.bung'; Parent='IIS://Web01/msftpsvc/2'");
  shows("iis://web01/msftpsvc/1", "AdsPath='IIS://web01/msftpsvc/1'");
  for (const char* path : {"/W3SVC", "/", "//MSFTPSVC", "/MSFTPSVC/", "/MSFTPSVC//1"})
    fails(path, "", number::kPathNotFound, {std::string("IIS://Web01") + path + ": no such node"});
  const auto findHalfOfAPair = [] { GetObject(u"IIS://Web01/\xD83D"); };
  EXPECT_EQ(failureOf(findHalfOfAPair), number::kPathNotFound);
  fails("IIS:Web01", "", automation::number::kMonikerSyntax, {});
  fails("IIS://Web02/MSFTPSVC", "", number::kUnknownServer, {"known servers are Web01"});

  // An object and a name keep the snapshot that they were created from.
  const ObjectRef old = object("/MSFTPSVC/1");
  platform::metabase::mapServer(u"Alias", platform::metabase::snapshotOf(u"WEB01"));
  write("<IIsFtpServer Location ='/LM/MSFTPSVC/1' ServerComment='after'/>");
  shows("/MSFTPSVC/1", "ServerComment='after'");
  shows("IIS://alias/MSFTPSVC/1", "ServerComment='one'");
  platform::metabase::unmapServer(u"alias");
  platform::metabase::unmapServer(u"WEB01");
  shows(old, "ServerComment='one'");
  fails("/MSFTPSVC", "", number::kUnknownServer, {"no server is"});
}

TEST_F(MetabaseTest, ReadsOwnThenInheritedThenDefaultValues) {
  write(R"(<IIsConfigObject Location ='/LM' ConnectionTimeout='77'/>
<IIsFtpService Location ='/LM/MSFTPSVC' AnonymousUserName='IUSR' ServerBindings=':21:' MaxConnections='5'
  UNCUserName='joe'/>
<IIsFtpServer Location ='/LM/MSFTPSVC/1' MaxConnections='4294967295' LocalName='here'/>
<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/1/ROOT/a/b'/>)");
  shows("/MSFTPSVC", "MAXCONNECTIONS=5");
  shows("/MSFTPSVC/1", "Maxconnections=-1; connectiontimeout=77; Anonymoususername='IUSR'; LocalName='here'");
  shows("/MSFTPSVC/1/ROOT/a/b", "UNCUserName='joe'; Path=''");
  // Not inherited: properties that the schema excludes, and unknown ones.
  shows("/MSFTPSVC/1", "ServerBindings=[]");
  shows("/MSFTPSVC/1/ROOT", "LocalName=null");
  shows(
      "/MSFTPSVC/1",
      R"(ServerComment=null; LogPluginClsid=null; ExitMessage=''; LogFileTruncateSize=2000000; GreetingMessage=[];
logfiledirectory='%Windir%\System32\LogFiles'; DisableSocketPooling=True; AllowAnonymous=True; dontlog=False; AccessRead=True; AccessWrite=False)");
}

TEST_F(MetabaseTest, EverySchemaDefaultMatchesItsType) {
  write("<AnyClass Location ='/LM/MSFTPSVC'/>");
  const auto metabase = platform::metabase::snapshotOf(u"WEB01");
  const auto node = metabase->find(metabase->root(), u"LM/MSFTPSVC");
  const auto properties = platform::metabase::properties();
  for (std::uint32_t id = 0; id < platform::metabase::schemaNames().size(); ++id) {
    const bool isSecured = id < properties.size() && properties[id].secured;
    EXPECT_EQ(failureOf([&] { metabase->read(*node, id, u"WEB01"); }), isSecured ? number::kSecured : 0)
        << platform::metabase::schemaNames().text(id);
  }
  // A misspelled class in the data would be another one.
  EXPECT_EQ(platform::metabase::schemaClasses().size(), 33U);
}

TEST_F(MetabaseTest, FailsForUnknownNodesAndProperties) {
  write(R"(<IIsWebServer Location ='/LM/w3svc/1' Path='C:\site' MaxConnections='many'/>
<IIsFilters Location ='/LM/w3svc/1/Filters'/><IIsCertMapper Location ='/LM/w3svc/1/Mapper' Path='D:'/>
<IIsWebVirtualDir Location ='/LM/w3svc/1/ROOT'/><Invented Location ='/LM/w3svc/1/y'/>
<IIsWebDirectory Location ='/LM/w3svc/1/ROOT/d'/><IIsConfigObject Location ='/LM/w3svc/z'/>)");
  // The node's own values count, whatever its class.
  shows("/W3SVC/1/Mapper", "path='D:'");
  for (const char* path : {"/W3SVC/1", "/W3SVC/1/ROOT", "/W3SVC/1/y"}) shows(path, "Path='C:\\site'");
  for (const char* path : {"/W3SVC/1/ROOT/d", "/W3SVC/z"}) fails(path, "Path", number::kNotOfClass, {});
  const std::string filters = "IIS://Web01/w3svc/1/Filters (IIsFilters), ";
  fails("/W3SVC/1/FILTERS", "path", number::kNotOfClass,
        {filters + "Path: nodes of this class do not have the property"});
  fails("/W3SVC/1/Filters", "NoSuchThing", number::kPropertyUnknown, {filters + "NoSuchThing: neither"});
  const ObjectRef node = object("/W3SVC/1/Filters");
  const auto change = [&] { automation::write(node, u"ServerComment", u"x"); };
  EXPECT_EQ(failureOf(change, {filters + "ServerComment: a metabase"}), number::kReadOnly);
  EXPECT_EQ(failureOf([&] { call(node, u"Start"); }), automation::number::kMemberNotSupported);
  fails("iis://WEB01/w3svc/1/Y", "MaxConnections", number::kWrongValue,
        {"IIS://WEB01/w3svc/1/y (Invented), MaxConnections: the value \"many\", inherited from "
         "/LM/w3svc/1, is not a number"});
}

TEST_F(MetabaseTest, ReadsValuesWithTheTypeOfTheirProperty) {
  write(
      "<IIsFtpServer\tLocation ='/LM/MSFTPSVC/1'\r\n\t\tServerBindings=':21:\r\n\t\t\t10.0.0.5:2121:'\r\n"
      "\t\tGreetingMessage='  Hello &lt;you&gt;\r\n\r\n\t\t\t  and goodbye \r\n\t\t\t'\r\n"
      "\t\tExitMessage='a&#x000D;&#x000A;b\t c &amp; &quot;d&quot;' ServerComment=' Zürich \U0001F600 '\r\n"
      "\t\tMSDOSDirOutput='false' AllowAnonymous='1' AnonymousOnly='tRuE' DontLog='0'\r\n\t/>");
  shows("/MSFTPSVC/1",
        "ServerBindings=[:21:|10.0.0.5:2121:]; GreetingMessage=[  Hello <you>|  and goodbye ]; "
        "ExitMessage='a\r\nb\t c & \"d\"'; ServerComment=' Zürich \U0001F600 '; "
        "MSDOSDirOutput=False; AllowAnonymous=True; AnonymousOnly=True; DontLog=False");
  const auto get = [](TextView method, TextView name) {
    return shown(call(object("/MSFTPSVC/1"), method, name));
  };
  EXPECT_EQ(get(u"Get", u"allowanonymous"), "True");
  EXPECT_EQ(get(u"GetEx", u"ExitMessage"), "[a\r\nb\t c & \"d\"]");
  EXPECT_EQ(get(u"getex", u"ServerBindings"), "[:21:|10.0.0.5:2121:]");
  EXPECT_EQ(get(u"GetEx", u"LogPluginClsid"), "[]");
}

TEST_F(MetabaseTest, ReadsFlagsAsBooleans) {
  write(R"(<IIsFtpService Location ='/LM/MSFTPSVC' LogExtFileFlags='LogExtFileDate | logextfilehost'/>
<IIsFtpServer Location ='/LM/MSFTPSVC/1' AccessFlags='AccessRead|AccessWrite | 0x200'/>
<IIsFtpServer Location ='/LM/MSFTPSVC/2' AccessFlags='2' LogExtFileFlags='' DirBrowseFlags='EnableDirBrowsing'/>)");
  shows("/MSFTPSVC/1", "AccessFlags=515; accesswrite=True; AccessScript=True; AccessSource=False");
  shows("/MSFTPSVC/1", "LogExtFileHost=True; LogExtFileDate=True; LogExtFileTime=False");
  shows("/MSFTPSVC/2", "AccessRead=False; AccessWrite=True; LogExtFileDate=False");
  shows("/MSFTPSVC/2", "DirBrowseFlags=-2147483648; EnableDirBrowsing=True; EnableDefaultDoc=False");
}

TEST_F(MetabaseTest, ReadsCustomElementsAsProperties) {
  write(R"(<IIsFtpService Location ='/LM/MSFTPSVC'>
<Custom Name='Colour' ID='70001' Value='blue' Type='STRING' UserType='X' Attributes='INHERIT | VOLATILE'/>
<Custom Name='Depth' ID='70002' Value='3' Type='DWORD' Attributes='NO_ATTRIBUTES'/>
<Custom Name='UnknownName_1013' ID='1013' Value='900' Type='DWORD' Attributes='INHERIT'/>
<Custom ID='5002' Value='one
two' Type='MULTISZ' Attributes='INHERIT'/>
<Custom Name='AccessFlags' ID='6016' Value='3' Type='DWORD' Attributes='INHERIT'/>
<Custom Name='AllowAnonymous' ID='5005' Value='0' Type='DWORD'/>
<Custom Name='Blob' ID='70003' Value='00ff' Type='BINARY'/>
<Custom Name='Hidden' ID='70004' Value='x' Type='STRING' Attributes='SECURE'/>
</IIsFtpService><IIsFtpServer Location ='/LM/MSFTPSVC/1'/>)");
  shows("/MSFTPSVC", "Depth=3; Blob='00ff'");
  shows("/MSFTPSVC/1", "colour='blue'; Depth=null; ConnectionTimeout=900; GreetingMessage=[one|two]");
  shows("/MSFTPSVC/1", "AccessWrite=True; AllowAnonymous=False");
  fails("/MSFTPSVC", "Hidden", number::kSecured, {"Hidden"});
}

TEST_F(MetabaseTest, DerivesStatesFromAutoStart) {
  write(R"(<IIsFtpServer Location ='/LM/MSFTPSVC/1'/>
<IIsFtpServer Location ='/LM/MSFTPSVC/2' ServerAutoStart='FALSE'/>
<IIsFtpServer Location ='/LM/MSFTPSVC/3' ServerAutoStart='FALSE' Status='6'/>
<IIsFtpServer Location ='/LM/MSFTPSVC/4' ServerState='1'/><IIsApplicationPool Location ='/LM/W3SVC/AppPools/A'/>
<IIsApplicationPool Location ='/LM/W3SVC/AppPools/B' AppPoolAutoStart='FALSE'/>
<IIsApplicationPool Location ='/LM/W3SVC/AppPools/C' AppPoolState='4'/>)");
  EXPECT_EQ(children("/MSFTPSVC", u"status"), "2461");
  EXPECT_EQ(children("/W3SVC/AppPools", u"AppPoolState"), "244");
}

TEST_F(MetabaseTest, ReadsIpSecurityLists) {
  write(R"(<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/1/ROOT'/>
<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/2/ROOT' IPSecurity='GrantByDefault=FALSE
    IPGrant=10.0.0.5, 255.255.255.255
    IPGrant=10.1.0.0,255.255.0.0
    ipdeny=192.168.0.0, 255.255.0.0'/>
<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/3/ROOT'><Custom Name='UnknownName_6019' ID='6019' Type='BINARY'
  Attributes='INHERIT' Value='180000802000008 03C00008044000080 010000004c000000 0000000000000000
    0100000001000000 0200000002000000 0400000000000000 4C000080 0000000000000000 0000000000000000
    ffffffff 7f000001'/></IIsFtpVirtualDir>)");
  const auto security = [](const std::string& path) {
    return toObject(automation::call(object(path), u"GetEx", u"IPSecurity"));
  };
  shows(security("/MSFTPSVC/1/ROOT"), "GrantByDefault=True; IPDeny=[]; DomainGrant=[]");
  shows(security("/MSFTPSVC/2/ROOT"),
        "grantbydefault=False; IPGrant=[10.0.0.5, 255.255.255.255|10.1.0.0,255.255.0.0]; "
        "IPDeny=[192.168.0.0, 255.255.0.0]");
  shows(security("/MSFTPSVC/3/ROOT"),
        "GrantByDefault=False; IPGrant=[127.0.0.1, 255.255.255.255]; IPDeny=[]");
}

TEST_F(MetabaseTest, RejectsPartlyValidBinaryIpSecurity) {
  const std::vector<std::string> several{"10.0.0.5, 255.255.255.255", "10.0.0.6, 255.255.255.255",
                                         "192.168.0.0, 255.255.0.0"};
  const auto decode = [](const std::string& bytes) {
    platform::metabase::IpSecurityProblem problem;
    return platform::metabase::decodeIpSecurity(bytes, problem);
  };
  EXPECT_FALSE(decode(test::encodeIpSecurity(several, several)));
  EXPECT_FALSE(decode(test::encodeIpSecurity({}, {})));
  for (const bool grants : {false, true}) {
    const std::string whole =
        grants ? test::encodeIpSecurity({}, several) : test::encodeIpSecurity(several, {});
    const auto security = decode(whole);
    ASSERT_TRUE(security);
    EXPECT_EQ(security->grantByDefault, !grants);
    EXPECT_EQ(grants ? security->grants : security->denials, several);
    for (std::size_t size = 0; size < whole.size(); ++size)
      EXPECT_FALSE(decode(whole.substr(0, size))) << size;
    EXPECT_FALSE(decode(whole + '\0'));
    // Any number before the elements, except the meaningless one.
    for (std::size_t at = 0; at < static_cast<unsigned char>(whole[20]); ++at) {
      for (const int change : {1, 8, 0x80, 0xFF}) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ change);
        EXPECT_EQ(decode(bytes).has_value(), at / 4 == 4) << at;
      }
    }
  }
}

TEST_F(MetabaseTest, FailsOnReadingInvalidValues) {
  struct Case {
    std::string property, value, fragment;
    std::int32_t code = number::kWrongValue;
  };
  const std::string digits(1001, '9'), large((std::size_t{1} << 20) + 1, 'x');
  for (const Case& wrong :
       {Case{"MaxConnections", "4294967296", "4294967296"}, Case{"ConnectionTimeout", "-1", "-1"},
        Case{"LogType", "", "not a number"}, Case{"LogType", digits, "999..."},
        Case{"AllowAnonymous", "yes" + digits, "yes9"}, Case{"ExitMessage", large, "is longer than 1 MiB"},
        Case{"AccessFlags", "AccessRead | AccessFly" + digits, "AccessFly9"},
        Case{"AdminACL", "00", "AdminACL", number::kSecured},
        Case{"IPSecurity", "0102030405060708\r\n\t\t\tFF00", "10 bytes", number::kBinaryIpSecurity},
        Case{"IPSecurity", digits, "first line"}, Case{"IPSecurity", "Grant=TRUE", "first line"},
        Case{"IPSecurity", "GrantByDefault=TRUE\nIPDeny=10.0.0.256, 255.0.0.0", "256"},
        Case{"IPSecurity", "GrantByDefault=TRUE\nIPLend=10.0.0.1, 255.0.0.0", "IPLend"}}) {
    write("<IIsFtpServer Location ='/LM/MSFTPSVC/1' ServerComment='fine' " + wrong.property + "='" +
          wrong.value + "'/>");
    fails("/MSFTPSVC/1", wrong.property, wrong.code,
          {wrong.fragment, "IIS://Web01/MSFTPSVC/1 (IIsFtpServer), " + wrong.property + ": "});
    shows("/MSFTPSVC/1", "ServerComment='fine'");
  }
}

TEST_F(MetabaseTest, ReportsTheErrorOfEachBrokenFile) {
  const auto among = [](const std::string& elements) { return kHead + elements + kTail; };
  const auto value = [&](const std::string& text) { return among("<a P=\"" + text + "\"/>"); };
  const struct {
    std::string content;
    std::int32_t code;
    const char* fragment;
  } cases[] = {
      {"", number::kFileEmpty, "empty"},
      {" \r\n ", number::kNotXml, "no element"},
      {among("<a></b>"), number::kNotXml, "line 4: not XML: the tag \"</b>\""},
      {among("<a\nP=\"1\"\nP=\"2\"/>"), number::kNotXml, "line 6: not XML: duplicate attribute \"P\""},
      {among("") + "<more/>", number::kNotXml, "after the root element"},
      {among("<a \xE2\x82\xAC=\"\"/>"), number::kNotXml, "unexpected U+20AC"},
      {kHead + "\n<a", number::kCutOff, "a tag that begins on line 5"},
      {kHead + "<a P=\"x", number::kCutOff, "a value"},
      {kHead + "\n<!-- x\n", number::kCutOff, "line 6: the file is truncated inside a comment"},
      {"<html><body/></html>", number::kAnotherKind, "\"html\""},
      {"<configuration><Sections/></configuration>", number::kAnotherKind, "MBProperty"},
      {"<!DOCTYPE configuration []><configuration/>", number::kDocumentType, "document type"},
      {"<?xml version='1.1'?><configuration/>", number::kNotXml, "declared XML version"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?><configuration/>", number::kEncoding, "declared encoding"},
      {value("&amp;\r\n&copy;"), number::kEntity, "line 5: the entity \"&copy;\""},
      {value("\r\n&#xD800;"), number::kEntity, "line 5: the reference \"&#xD800;\""},
      {value("a & b"), number::kEntity, "line 4"},
      {value("\x01"), number::kEncoding, "U+0001"},
      {value("\xED\xA0\x80"), number::kEncoding, "0xED"},
      {utf16(value("xxxxxxxxxxxx"), false).substr(0, 201), number::kCutOff, "a character"},
      {utf16(kHead, true) + std::string("\xDC\0\0\0", 4), number::kEncoding, "line 4: invalid UTF-16"},
  };
  for (const auto& [content, code, fragment] : cases) {
    SCOPED_TRACE(fragment);
    const auto parse = [&, bytes = std::string_view(content)] { Metabase::parse(bytes, kFile); };
    EXPECT_EQ(failureOf(parse, {fragment, kFile}), code);
  }
}

TEST_F(MetabaseTest, RejectsFilesTruncatedAnywhere) {
  const std::string whole =
      kHead + "<!-- a note --><a\tLocation =\"/LM/1\"\r\n\tServerComment=\"Zürich &amp;\">\r\n" +
      "<Custom Name=\"Own\" Value=\"\U0001F600\" Type=\"STRING\"/></a>\r\n" + kTail;
  const auto parsing = [](const std::string& bytes) {
    return failureOf([&] { Metabase::parse(bytes, kFile); });
  };
  for (std::size_t at = 1; at <= whole.size(); ++at) {
    ASSERT_NE(parsing(std::string(whole).insert(at, 1, '\0')), 0) << at;
    ASSERT_EQ(parsing(whole.substr(0, at)) == 0, at >= whole.size() - 2) << at;
  }
}

TEST_F(MetabaseTest, ReadsEveryXmlEncoding) {
  const std::string rest =
      "<configuration><MBProperty><a Location=\"/LM/1\" ServerComment=\"Zü \U0001F600\"/>" + kTail;
  const std::string plain = "<?xml version=\"1.0\"?>" + rest;
  for (const std::string& bytes :
       {plain, "\uFEFF" + plain, utf16("\uFEFF" + plain, false), utf16("\uFEFF" + plain, true),
        utf16("<?xml version=\"1.0\" encoding=\"utf-16\"?>" + rest, false), utf16("\n" + rest, true)}) {
    platform::metabase::mapServer(u"Web01", Metabase::parse(bytes, kFile));
    shows("/1", "ServerComment='Zü \U0001F600'");
    EXPECT_TRUE(platform::metabase::looksLikeMetabase(bytes.substr(0, 200)));
  }
  EXPECT_TRUE(platform::metabase::looksLikeMetabase(
      "<?xml version=\"1.0\" encoding=\"windows-1252\"?><!-- \xE9 --><x:configuration>\xFC<x:MBProperty>"));
  for (const char* other : {"", "<configuration><a><MBProperty/>", "<html><configuration><MBProperty>"})
    EXPECT_FALSE(platform::metabase::looksLikeMetabase(other)) << other;
}

TEST_F(MetabaseTest, ContinuesAfterParseWarnings) {
  write(R"(<IIsFtpServer ServerComment='lost'/>stray
<a Location='LM/a'/><a Location='/LM//a'/><a Location='/)" +
        std::string(32767, 'x') + R"('/>
<IIsFtpServer Location='/lm/MSFTPSVC/1' ServerComment='first' SERVERCOMMENT='second'>
<Custom Name='serverComment' Value='third' Type='STRING'/><b/>text
<Custom Name='' ID='9202' Value='1'/><Custom Name='Own' Value='1' Type='BLOB'/>
<Custom Name='Handed' Value='h' Type='STRING' Attributes='INHERIT | NEW'/></IIsFtpServer>
<IIsFtpVirtualDir Location='/LM/msftpsvc/1/ROOT'/><IIsFtpService Location='/lm/MsFTPsvc/&#x31;' LogType='9'/>
<IIsFtpService Location='/LM/MsFtpSvc'/>)");
  const auto snapshot = platform::metabase::snapshotOf(u"Web01");
  std::string all = "\n";
  for (const Metabase::ParseWarning& warning : snapshot->warnings())
    all += snapshot->describe(warning, u"S") + "\n";
  EXPECT_EQ(all, R"(
MetaBase.xml, line 4: the element "IIsFtpServer" has no Location
MetaBase.xml, line 4: unexpected text inside "MBProperty"
MetaBase.xml, line 5: the Location "LM/a" of "a" does not begin with "/"
MetaBase.xml, line 5: the Location "/LM//a" of "a" has an empty component
MetaBase.xml, line 5: the Location "/)" +
                     std::string(79, 'x') +
                     R"(..." of "a" is longer than 32767 characters
IIS://S/MsFtpSvc/1 (IIsFtpServer), ServerComment: duplicate property: the first one is used (line 6)
IIS://S/MsFtpSvc/1 (IIsFtpServer): unexpected element "b" inside a node (line 7)
IIS://S/MsFtpSvc/1 (IIsFtpServer): unexpected text inside a node (line 7)
IIS://S/MsFtpSvc/1 (IIsFtpServer), ServerComment: duplicate property: the first one is used (line 7)
IIS://S/MsFtpSvc/1 (IIsFtpServer): a "Custom" element has no Name, and its ID is missing or unknown (line 8)
IIS://S/MsFtpSvc/1 (IIsFtpServer), Own: unknown type "BLOB" in a "Custom" element (line 8)
IIS://S/MsFtpSvc/1 (IIsFtpServer), Handed: unknown attribute "NEW" in a "Custom" element (line 9)
IIS://S/MsFtpSvc/1 (IIsFtpServer): duplicate node: the element on line 6 is used (line 10)
)");
  EXPECT_EQ(snapshot->warnings()[0].failureNumber, number::kBadElement);
  EXPECT_EQ(snapshot->warnings()[2].failureNumber, number::kBadLocation);
  // The spelling of the node's own element counts, wherever it is.
  shows("/MSFTPSVC/1/root", "ADsPath='IIS://Web01/MsFtpSvc/1/ROOT'; Handed='h'");
  shows("/MSFTPSVC/1", "Class='IIsFtpServer'; ServerComment='first'; LogType=1");
  fails("/MSFTPSVC/1", "Own", number::kWrongValue, {"has an unknown type"});
}

TEST_F(MetabaseTest, ReadsAFileAtomically) {
  const test::Folder directory;
  const std::filesystem::path file = directory / kFile;
  const auto read = [&] { platform::metabase::readFile(file); };
  EXPECT_EQ(failureOf(read, {file.string()}), number::kFileNotFound);
  EXPECT_EQ(failureOf([&] { platform::metabase::readFile(directory.path()); }), number::kFileIsDirectory);
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  EXPECT_EQ(failureOf(read), number::kFileUnreadable);
  std::filesystem::remove(file);

  directory.file(kFile, std::string(1 << 22, ' '));
  EXPECT_EQ(os::stampOf(file), platform::metabase::readFile(file).stamp);
  std::jthread restless([&](const std::stop_token& stop) {
    for (std::filesystem::file_time_type time; !stop.stop_requested(); time += std::chrono::seconds(1))
      std::filesystem::last_write_time(file, time);
  });
  std::int32_t refused = 0;
  for (int attempt = 0; refused == 0 && attempt < 10000; ++attempt) refused = failureOf(read);
  EXPECT_EQ(refused, number::kFileChanged);
}

}  // namespace
