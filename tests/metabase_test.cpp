// The objects at IIS:// paths, over small files that each test writes itself.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "fuzz/ip_security_encoder.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/ip_security.h"
#include "platform/metabase/servers.h"
#include "tests/support/folder.h"

namespace {

using automation::fromUtf8;
using automation::ObjectRef;
using automation::TextView;
using automation::Variant;
using platform::metabase::Metabase;
namespace number = platform::metabase::number;

const std::string kHead =
    "\xEF\xBB\xBF<?xml version =\"1.0\"?>\r\n"
    "<configuration xmlns=\"urn:microsoft-catalog:XML_Metabase_V64_0\">\r\n<MBProperty>\r\n";
const std::string kTail = "</MBProperty>\r\n</configuration>\r\n";
const std::string kFile = "MetaBase.xml";

// UTF-8 as UTF-16 with its bytes in either order.
std::string utf16(const std::string& text, bool bigEndian) {
  std::string bytes;
  for (const char16_t unit : fromUtf8(text)) {
    const char pair[2] = {static_cast<char>(unit >> 8), static_cast<char>(unit)};
    bytes += pair[bigEndian ? 0 : 1];
    bytes += pair[bigEndian ? 1 : 0];
  }
  return bytes;
}

// A value with its type: 'text', True, 5, [text|text], null.
std::string shown(const Variant& value) {
  if (value.isNull()) return "null";
  if (const auto* text = value.as<automation::Text>()) return "'" + automation::toUtf8(*text) + "'";
  if (value.asArray() == nullptr) {
    EXPECT_TRUE(value.as<bool>() != nullptr || value.as<std::int32_t>() != nullptr);
    return automation::toUtf8(automation::toText(value));
  }
  std::string all;
  for (const Variant& element : value.asArray()->elements) {
    all += (all.empty() ? "" : "|") + automation::toUtf8(automation::toText(element));
  }
  return "[" + all + "]";
}

class MetabaseTest : public testing::Test {
 protected:
  void SetUp() override { platform::metabase::registerMoniker(); }
  void TearDown() override { platform::metabase::unmapServer(u"Web01"); }

  // Makes the elements, whose quotes are single for the sake of legibility, the metabase of Web01.
  static void write(std::string elements) {
    std::replace(elements.begin(), elements.end(), '\'', '"');
    platform::metabase::mapServer(u"Web01", Metabase::parse(kHead + elements + kTail, kFile));
  }

  // The object at a moniker, or at a path of Web01.
  static ObjectRef object(const std::string& path) {
    return automation::GetObject(fromUtf8(path.find(':') == 3 ? path : "IIS://Web01" + path));
  }
  // The values of an object's properties, "Name=value; Name=value", as shown() has them.
  static void shows(const ObjectRef& object, const std::string& values) {
    std::istringstream all(values);
    for (std::string each; std::getline(all >> std::ws, each, ';');) {
      const std::size_t equals = each.find('=');
      EXPECT_EQ(shown(automation::read(object, fromUtf8(each.substr(0, equals)))), each.substr(equals + 1))
          << each;
    }
  }
  static void shows(const std::string& path, const std::string& values) {
    SCOPED_TRACE(path);
    shows(object(path), values);
  }
  // What is done must fail so, with all the fragments in its message.
  static void fails(std::int32_t code, const std::vector<std::string>& fragments,
                    const std::function<void()>& operation) {
    try {
      operation();
      ADD_FAILURE() << "no failure";
    } catch (const automation::Failure& failure) {
      const std::string message = automation::toUtf8(failure.description());
      EXPECT_EQ(failure.number(), code) << message;
      for (const std::string& part : fragments) EXPECT_NE(message.find(part), std::string::npos) << message;
    }
  }
  // The same of an object: "" gets it, "Name" reads, "Name()" calls, "Name=" writes.
  static void fails(const std::string& path, const std::string& what, std::int32_t code,
                    const std::vector<std::string>& fragments) {
    SCOPED_TRACE(path + " " + what);
    fails(code, fragments, [&] {
      const ObjectRef found = object(path);
      const automation::Text name = fromUtf8(what.substr(0, what.find_first_of("(=")));
      if (what.ends_with("()")) automation::call(found, name);
      if (what.ends_with("=")) automation::write(found, name, u"x");
      if (name.size() == what.size() && !what.empty()) automation::read(found, name);
    });
  }
  // A property of all children.
  static std::string children(const std::string& path, TextView property = u"Name") {
    std::string values;
    const auto walk = automation::children(object(path));
    while (const ObjectRef child = walk->next()) values += shown(automation::read(child, property));
    return values;
  }
};

TEST_F(MetabaseTest, PathsNamesAndChildrenAreAsTheFileSpellsThem) {
  write(
      "<IIsFtpServer Location ='/LM/MSFTPSVC/2/\xC3\x9C.bung'/>\r\n"
      "<IIsFtpServer Location ='/LM/MSFTPSVC/20'/>\r\n"
      "<IIsFtpService\tLocation ='/LM/msftpsvc'\r\n\t></IIsFtpService>\r\n"
      "<IIsFtpServer Location ='/lm/MSFTPSVC/1' ServerComment='one'></IIsFtpServer>\r\n"
      "<IIS_Global Location ='.' ChangeNumber='4'/><IIS_ROOT Location ='/'/>\r\n");
  EXPECT_EQ(children(""), "'msftpsvc'");
  EXPECT_EQ(children("/MSFTPSVC"), "'2''20''1'");
  EXPECT_EQ(children("/MSFTPSVC/1"), "");
  shows("", "ADsPath='IIS://Web01'");
  shows("/msftpsvc", "class='IIsFtpService'");
  shows("/mSFTPsvc/2", "CLASS='IIsConfigObject'");
  shows("/msftpsvc/2/\xC3\xBC.BUNG", "Name='\xC3\x9C.bung'; Parent='IIS://Web01/msftpsvc/2'");
  shows("iis://web01/msftpsvc/1", "AdsPath='IIS://web01/msftpsvc/1'");
  for (const char* path : {"/W3SVC", "/", "//MSFTPSVC", "/MSFTPSVC/", "/MSFTPSVC//1", "/MSFTPSVC/1/x"}) {
    fails(path, "", number::kPathNotFound, {std::string("IIS://Web01") + path + ": there is no such node"});
  }
  fails("IIS:Web01", "", automation::number::kMonikerSyntax, {});
  fails("IIS://Web02/MSFTPSVC", "", number::kUnknownServer, {"known are: Web01"});
  platform::metabase::unmapServer(u"WEB01");
  fails("/MSFTPSVC", "", number::kUnknownServer, {"no server is"});
}

TEST_F(MetabaseTest, AValueIsOwnElseInheritedElseTheDefault) {
  write(
      "<IIsConfigObject Location ='/LM' ConnectionTimeout='77'/>"
      "<IIsFtpService Location ='/LM/MSFTPSVC' AnonymousUserName='IUSR' ServerBindings=':21:' "
      "MaxConnections='5'/>"
      "<IIsFtpServer Location ='/LM/MSFTPSVC/1' MaxConnections='4294967295' LocalName='here'/>"
      "<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/1/ROOT/a/b'/>");
  shows("/MSFTPSVC", "MAXCONNECTIONS=5");
  shows("/MSFTPSVC/1", "Maxconnections=-1; connectiontimeout=77; Anonymoususername='IUSR'; LocalName='here'");
  shows("/MSFTPSVC/1/ROOT/a/b", "MaxConnections=-1; ConnectionTimeout=77");
  // Not inherited: what the schema says is not, and what it does not know.
  shows("/MSFTPSVC/1/ROOT", "ServerBindings=[]; LocalName=null");
  // Nowhere in the file.
  shows("/MSFTPSVC/1",
        "ServerComment=null; HttpRedirect=null; ExitMessage=''; LogFileTruncateSize=2000000; "
        "GreetingMessage=[]; "
        "logfiledirectory='%windir%\\system32\\logfiles'; AllowAnonymous=True; dontlog=False; "
        "AccessRead=True; AccessWrite=False; LogExtFileTime=True; LogExtFileDate=False");
}

TEST_F(MetabaseTest, AFailureSaysWhereAndWhatTheClassNeverHasFails) {
  write(
      "<IIsWebServer Location ='/LM/w3svc/1' Path='C:\\site' MaxConnections='many'/>"
      "<IIsFilters Location ='/LM/w3svc/1/Filters'/><IIsCertMapper Location ='/LM/w3svc/1/Mapper' Path='D:'/>"
      "<IIsWebVirtualDir Location ='/LM/w3svc/1/ROOT'/><IIsConfigObject Location ='/LM/w3svc/1/x'/>"
      "<Invented Location ='/LM/w3svc/1/y'/>");
  // What the node itself holds counts, whatever its class.
  shows("/W3SVC/1", "Path='C:\\site'");
  shows("/W3SVC/1/Mapper", "path='D:'");
  for (const char* path : {"/W3SVC/1/ROOT", "/W3SVC/1/x", "/W3SVC/1/y"}) shows(path, "Path='C:\\site'");
  const std::string filters = "IIS://Web01/w3svc/1/Filters (IIsFilters), ";
  const char* const never = "a node of this class has no such property";
  fails("/W3SVC/1/FILTERS", "path", number::kNotOfClass, {filters + "Path: " + never});
  fails("/W3SVC/1/filters", "Status", number::kNotOfClass, {filters + "Status: " + never});
  fails("/W3SVC/1/Filters", "NoSuchThing", number::kPropertyUnknown, {filters + "NoSuchThing: neither"});
  fails("/W3SVC/1/Filters", "ServerComment=", number::kReadOnly, {filters + "ServerComment: a metabase"});
  fails("iis://WEB01/w3svc/1/filters", "MaxConnections", number::kWrongValue,
        {"IIS://WEB01/w3svc/1/Filters (IIsFilters), MaxConnections: the value \"many\", inherited from "
         "/LM/w3svc/1, is no number"});
}

TEST_F(MetabaseTest, ValuesHaveTheTypesOfTheirProperties) {
  write(
      "<IIsFtpServer\tLocation ='/LM/MSFTPSVC/1'\r\n\t\tServerBindings=':21:\r\n\t\t\t10.0.0.5:2121:'\r\n"
      "\t\tGreetingMessage='  Hello &lt;you&gt;\r\n\r\n\t\t\t  and goodbye \r\n\t\t\t'\r\n"
      "\t\tExitMessage='a&#x000D;&#x000A;b\t c &amp; &quot;d&quot;'\r\n"
      "\t\tServerComment=' Z\xC3\xBCrich \xF0\x9F\x98\x80 '\r\n"
      "\t\tMSDOSDirOutput='false' AllowAnonymous='1' AnonymousOnly='tRuE' DontLog='0'\r\n\t/>");
  shows("/MSFTPSVC/1",
        "ServerBindings=[:21:|10.0.0.5:2121:]; GreetingMessage=[  Hello <you>|  and goodbye ]; "
        "ExitMessage='a\r\nb\t c & \"d\"'; ServerComment=' Z\xC3\xBCrich \xF0\x9F\x98\x80 '; "
        "MSDOSDirOutput=False; AllowAnonymous=True; AnonymousOnly=True; DontLog=False");
  const auto get = [](TextView method, TextView name) {
    return shown(automation::call(object("/MSFTPSVC/1"), method, name));
  };
  EXPECT_EQ(get(u"Get", u"allowanonymous"), "True");
  EXPECT_EQ(get(u"GetEx", u"ExitMessage"), "[a\r\nb\t c & \"d\"]");
  EXPECT_EQ(get(u"getex", u"ServerBindings"), "[:21:|10.0.0.5:2121:]");
  EXPECT_EQ(get(u"GetEx", u"HttpRedirect"), "[]");
  fails("/MSFTPSVC/1", "Start()", automation::number::kMemberNotSupported, {});
}

TEST_F(MetabaseTest, FlagsAreBooleansOfTheirOwn) {
  write(
      "<IIsFtpService Location ='/LM/MSFTPSVC' LogExtFileFlags='LogExtFileDate | logextfilehost'/>"
      "<IIsFtpServer Location ='/LM/MSFTPSVC/1' AccessFlags='AccessRead|AccessWrite | 0x200'/>"
      "<IIsFtpServer Location ='/LM/MSFTPSVC/2' AccessFlags='2' LogExtFileFlags=''/>"
      "<IIsFtpServer Location ='/LM/MSFTPSVC/3' DirBrowseFlags='EnableDirBrowsing'/>");
  shows("/MSFTPSVC/1", "AccessFlags=515; accesswrite=True; AccessScript=True; AccessSource=False");
  shows("/MSFTPSVC/1", "LogExtFileHost=True; LogExtFileDate=True; LogExtFileTime=False");
  shows("/MSFTPSVC/2", "AccessRead=False; AccessWrite=True; LogExtFileDate=False");
  shows("/MSFTPSVC/3", "DirBrowseFlags=-2147483648; EnableDirBrowsing=True; EnableDefaultDoc=False");
}

TEST_F(MetabaseTest, CustomElementsAreProperties) {
  write(
      "<IIsFtpService Location ='/LM/MSFTPSVC'>\r\n"
      "\t<Custom\r\n\t\tName='Colour'\r\n\t\tID='70001'\r\n\t\tValue='blue'\r\n\t\tType='STRING'\r\n"
      "\t\tUserType='IIS_MD_UT_SERVER'\r\n\t\tAttributes='INHERIT | VOLATILE'\r\n\t/>\r\n"
      "<Custom Name='Depth' ID='70002' Value='3' Type='DWORD' Attributes='NO_ATTRIBUTES'/>"
      "<Custom Name='UnknownName_1013' ID='1013' Value='900' Type='DWORD' Attributes='INHERIT'/>"
      "<Custom ID='5002' Value='one\r\n\t\t\ttwo' Type='MULTISZ' Attributes='INHERIT'/>"
      "<Custom Name='AccessFlags' ID='6016' Value='3' Type='DWORD' Attributes='INHERIT'/>"
      "<Custom Name='AllowAnonymous' ID='5005' Value='0' Type='DWORD'/>"
      "<Custom Name='ServerBindings' ID='1023' Value=':21:' Type='MULTISZ' Attributes='INHERIT'/>"
      "<Custom Name='Blob' ID='70003' Value='00ff' Type='BINARY'/>"
      "<Custom Name='Hidden' ID='70004' Value='x' Type='STRING' Attributes='SECURE'/>"
      "</IIsFtpService><IIsFtpServer Location ='/LM/MSFTPSVC/1'/>");
  shows("/MSFTPSVC", "Depth=3; Blob='00ff'");
  shows("/MSFTPSVC/1", "colour='blue'; Depth=null; ConnectionTimeout=900; GreetingMessage=[one|two]");
  shows("/MSFTPSVC/1", "AccessWrite=True; AllowAnonymous=False; ServerBindings=[:21:]");
  fails("/MSFTPSVC", "Hidden", number::kSecured, {"Hidden"});
}

TEST_F(MetabaseTest, AStateIsTheFilesOwnElseWhatStartsByItselfRuns) {
  write(
      "<IIsFtpServer Location ='/LM/MSFTPSVC/1'/>"
      "<IIsFtpServer Location ='/LM/MSFTPSVC/2' ServerAutoStart='FALSE'/>"
      "<IIsFtpServer Location ='/LM/MSFTPSVC/3' ServerAutoStart='FALSE' Status='6'/>"
      "<IIsFtpServer Location ='/LM/MSFTPSVC/4' ServerState='1'/>"
      "<IIsApplicationPool Location ='/LM/W3SVC/AppPools/A'/>"
      "<IIsApplicationPool Location ='/LM/W3SVC/AppPools/B' AppPoolAutoStart='FALSE'/>"
      "<IIsApplicationPool Location ='/LM/W3SVC/AppPools/C' AppPoolState='4'/>");
  EXPECT_EQ(children("/MSFTPSVC", u"status"), "2461");
  EXPECT_EQ(children("/W3SVC/AppPools", u"AppPoolState"), "244");
}

TEST_F(MetabaseTest, IpSecurityTellsWhoMayComeIn) {
  const std::string binary =
      "180000802000008 03C00008044000080 010000004c000000 0000000000000000 0100000001000000 "
      "0200000002000000\r\n"
      "\t\t0400000000000000 4C000080 0000000000000000 0000000000000000 ffffffff 7f000001";
  write(
      "<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/1/ROOT'/>"
      "<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/2/ROOT' IPSecurity='GrantByDefault=FALSE\r\n"
      "\t\t\tIPGrant=10.0.0.5, 255.255.255.255\r\n\t\t\tIPGrant=10.1.0.0,255.255.0.0\r\n"
      "\t\t\tipdeny=192.168.0.0, 255.255.0.0'/>"
      "<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/2/ROOT/open' IPSecurity=''/>"
      "<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/3/ROOT' IPSecurity='" +
      binary +
      "'/>"
      "<IIsFtpVirtualDir Location ='/LM/MSFTPSVC/4/ROOT'>"
      "<Custom Name='UnknownName_6019' ID='6019' Type='BINARY' Attributes='INHERIT' Value='" +
      binary + "'/></IIsFtpVirtualDir>");
  const auto security = [](const std::string& path) {
    return automation::toObject(automation::call(object(path), u"GetEx", u"IPSecurity"));
  };
  shows(security("/MSFTPSVC/1/ROOT"), "GrantByDefault=True; IPDeny=[]; DomainGrant=[]");
  shows(security("/MSFTPSVC/2/ROOT/open"), "GrantByDefault=True");
  shows(security("/MSFTPSVC/2/ROOT"),
        "grantbydefault=False; IPGrant=[10.0.0.5, 255.255.255.255|10.1.0.0,255.255.0.0]; "
        "IPDeny=[192.168.0.0, 255.255.0.0]");
  for (const char* path : {"/MSFTPSVC/3/ROOT", "/MSFTPSVC/4/ROOT"}) {
    shows(security(path), "GrantByDefault=False; IPGrant=[127.0.0.1, 255.255.255.255]; IPDeny=[]");
  }
}

TEST_F(MetabaseTest, ABinaryIpSecurityIsUnderstoodWholeOrNotAtAll) {
  using Entries = std::vector<std::string>;
  const std::string host = ", 255.255.255.255";
  const Entries one{"10.0.0.5" + host};
  const Entries several{"10.0.0.5" + host, "10.0.0.6" + host, "192.168.0.0, 255.255.0.0",
                        "10.9.0.0, 255.255.255.0"};
  const auto decode = [](const std::string& bytes) {
    platform::metabase::IpSecurityProblem problem;
    const auto security = platform::metabase::decodeIpSecurity(bytes, problem);
    if (!security) {
      EXPECT_EQ(problem.failureNumber, number::kBinaryIpSecurity);
      EXPECT_NE(problem.why.find(std::to_string(bytes.size()) + " bytes"), std::string::npos) << problem.why;
    }
    return security;
  };
  for (const Entries& entries : {one, several}) {
    const auto denied = decode(test::encodeIpSecurity(entries, {}));
    EXPECT_TRUE(denied && denied->grantByDefault && denied->denials == entries);
    const auto granted = decode(test::encodeIpSecurity({}, entries));
    EXPECT_TRUE(granted && !granted->grantByDefault && granted->grants == entries);
  }
  EXPECT_FALSE(decode(test::encodeIpSecurity(one, several)));
  EXPECT_FALSE(decode(test::encodeIpSecurity({}, {})));
  for (const std::string& whole :
       {test::encodeIpSecurity({}, several), test::encodeIpSecurity(several, {})}) {
    for (std::size_t size = 0; size < whole.size(); ++size)
      EXPECT_FALSE(decode(whole.substr(0, size))) << size;
    EXPECT_FALSE(decode(whole + '\0'));
    // Any other number before the elements, but for the one without a meaning.
    for (std::size_t at = 0; at < static_cast<unsigned char>(whole[20]); ++at) {
      for (const int change : {1, 8, 0x80, 0xFF}) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ change);
        EXPECT_EQ(decode(bytes).has_value(), at / 4 == 4) << at;
      }
      EXPECT_EQ(decode(std::string(whole).replace(at / 4 * 4, 4, 4, '\xFF')).has_value(), at / 4 == 4) << at;
    }
  }
}

TEST_F(MetabaseTest, WrongValuesFailWhenTheyAreRead) {
  struct Case {
    std::string property;
    std::string value;
    const char* fragment;
    std::int32_t code = number::kWrongValue;
  };
  const std::string security = "IPSecurity";
  const std::string granted = "GrantByDefault=TRUE\r\n\t\t";
  for (const Case& wrong :
       {Case{"MaxConnections", "4294967296", "4294967296"}, Case{"ConnectionTimeout", "-1", "-1"},
        Case{"LogType", "", "no number"}, Case{"AllowAnonymous", "yes", "yes"},
        Case{"AccessFlags", "AccessRead | AccessFly", "AccessFly"},
        Case{"AdminACL", "00", "AdminACL", number::kSecured},
        Case{security, "0102030405060708\r\n\t\t\tFF00", "10 bytes", number::kBinaryIpSecurity},
        Case{security, "123", "first line"}, Case{security, "Grant=TRUE", "first line"},
        Case{security, granted + "IPDeny=10.0.0.1", "10.0.0.1"},
        Case{security, granted + "IPDeny=10.0.0.256, 255.0.0.0", "256"},
        Case{security, granted + "IPLend=10.0.0.1, 255.0.0.0", "IPLend"}}) {
    write("<IIsFtpServer Location ='/LM/MSFTPSVC/1' ServerComment='fine' " + wrong.property + "='" +
          wrong.value + "'/>");
    fails("/MSFTPSVC/1", wrong.property, wrong.code,
          {wrong.fragment, "IIS://Web01/MSFTPSVC/1 (IIsFtpServer), " + wrong.property + ": "});
    shows("/MSFTPSVC/1", "ServerComment='fine'");
  }
}

TEST_F(MetabaseTest, BrokenFilesFailEachInTheirOwnWay) {
  const std::string site = "<IIsFtpServer Location =\"/LM/MSFTPSVC/1\" ServerComment=\"";
  const std::string whole = kHead + site + "x\"></IIsFtpServer>\r\n" + kTail;
  const auto among = [](const std::string& elements) { return kHead + elements + kTail; };
  const auto comment = [&](const std::string& value) { return among(site + value + "\"/>"); };
  struct Case {
    std::string content;
    std::int32_t code;
    const char* fragment;
  };
  const Case cases[] = {
      {"", number::kFileEmpty, "empty"},
      {" \r\n ", number::kNotXml, "no element"},
      {among("<a Location=\"/LM/a\"></b>"), number::kNotXml, "line 4: not XML: the tag \"</b>\""},
      {among("<a Location=\"/LM/a></a>"), number::kNotXml, "line 4"},
      {among("<a\r\nP=\"1\"\r\nP=\"2\"/>"), number::kNotXml,
       "line 6: not XML: the attribute \"P\" stands twice"},
      {whole + "<more/>", number::kNotXml, "behind the outermost"},
      {"stray <configuration/>", number::kNotXml, "before the outermost"},
      {among("<a \xE2\x82\xAC=\"\"/>"), number::kNotXml, "U+20AC where it cannot stand"},
      {whole.substr(0, whole.find("</MBProperty>")), number::kCutOff, "line 5"},
      {whole.substr(0, whole.find("Comment=")), number::kCutOff, "a tag that begins on line 4"},
      {whole.substr(0, whole.find("x\">") + 1), number::kCutOff, "a value"},
      {kHead + "\n<!-- x\n", number::kCutOff,
       "line 6: the file is cut off in the middle of a comment that begins on line 5"},
      {kHead + "<![CDATA[ x", number::kCutOff, "a CDATA section"},
      {"<html><body/></html>", number::kAnotherKind, "\"html\""},
      {"<configuration><Sections/></configuration>", number::kAnotherKind, "MBProperty"},
      {"<!DOCTYPE configuration []>" + whole, number::kDocumentType, "document type"},
      {"<!DOCTYPE x SYSTEM 'x'>" + whole, number::kDocumentType, "document type"},
      {"<?xml version='1.1'?><configuration/>", number::kNotXml, "another version than 1.0"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?><configuration/>", number::kEncoding, "another encoding"},
      {comment("&amp;\r\n&copy;"), number::kEntity, "line 5: the entity \"&copy;\""},
      {comment("\r\n&#xD800;"), number::kEntity, "line 5: the reference \"&#xD800;\""},
      {comment("a & b"), number::kEntity, "line 4"},
      {comment(std::string("a\0b", 3)), number::kEncoding, "NUL"},
      {comment("\x01"), number::kEncoding, "U+0001"},
      {comment("\xC3("), number::kEncoding, "0xC3"},
      {comment("\xED\xA0\x80"), number::kEncoding, "0xED"},
      {utf16(comment("x"), false).substr(0, 201), number::kCutOff, "a character"},
      {utf16(kHead, true) + std::string("\xDC\0\0\0", 4), number::kEncoding, "line 4: invalid UTF-16"},
  };
  for (const Case& broken : cases) {
    SCOPED_TRACE(broken.fragment);
    fails(broken.code, {broken.fragment, kFile}, [&] { Metabase::parse(broken.content, kFile); });
  }
}

TEST_F(MetabaseTest, EveryEncodingOfXmlIsReadAndKnown) {
  const std::string element =
      "<IIsFtpServer Location=\"/LM/MSFTPSVC/1\" ServerComment=\"Z\xC3\xBC \xF0\x9F\x98\x80\"/>";
  const std::string plain = kHead.substr(3) + element + kTail;
  const std::string declared =
      "<?xml version=\"1.0\" encoding=\"utf-16\"?>" + plain.substr(plain.find("<conf"));
  for (const std::string& bytes :
       {plain, kHead.substr(0, 3) + plain, utf16(kHead + element + kTail, false), utf16(declared, false),
        utf16(kHead + element + kTail, true), utf16("\n" + plain.substr(plain.find("<conf")), true)}) {
    platform::metabase::mapServer(u"Web01", Metabase::parse(bytes, kFile));
    shows("/MSFTPSVC/1", "ServerComment='Z\xC3\xBC \xF0\x9F\x98\x80'");
    EXPECT_TRUE(platform::metabase::looksLikeMetabase(bytes));
    EXPECT_TRUE(platform::metabase::looksLikeMetabase(bytes.substr(0, 300)));
  }
  EXPECT_TRUE(platform::metabase::looksLikeMetabase(
      "<?xml version=\"1.0\" encoding=\"windows-1252\"?><!-- \xE9 --><x:configuration>\xFC<x:MBProperty>"));
  for (const char* other :
       {"", "<configuration/>", "<configuration><system.web><MBProperty/>", "<MBProperty><configuration/>",
        "<html><configuration><MBProperty>", "PK\x03\x04"}) {
    EXPECT_FALSE(platform::metabase::looksLikeMetabase(other)) << other;
  }
}

TEST_F(MetabaseTest, AnOddPlaceCostsOnlyItself) {
  write(R"(<IIsFtpServer ServerComment='lost'/>stray
<a Location='LM/a'/><a Location='/LM//a'/><a Location='/LM/a/'/>
<IIsFtpServer Location='/lm/MSFTPSVC/1' ServerComment='first' SERVERCOMMENT='second' AccessFlags='1'>
<Custom Name='serverComment' Value='third' Type='STRING'/><b/>text
<Custom Name='' ID='9202' Value='1'/><Custom Name='Own' Value='1' Type='BLOB'/>
<Custom Name='Handed' Value='h' Type='STRING' Attributes='INHERIT | NEW'/><Custom Name='handed' Value='i'/>
<Custom Name='AccessFlags' Value='2' Type='DWORD'/></IIsFtpServer>
<IIsFtpVirtualDir Location='/LM/msftpsvc/1/ROOT'/><IIsFtpService Location='/lm/MSFTPSVC/1' LogType='9'/>
<IIsFtpService Location='/LM/MsFtpSvc'/><a Location='/)" +
        std::string(32767, 'x') + "'/>");
  const auto snapshot = platform::metabase::snapshotOf(u"Web01");
  const std::string where = "IIS://S/MsFtpSvc/1 (IIsFtpServer)";
  std::string all;
  for (const Metabase::Oddity& oddity : snapshot->oddities()) {
    std::string message = snapshot->describe(oddity, u"S");
    if (message.starts_with(where)) message.replace(0, where.size(), "@");
    all += message + "\n";
  }
  EXPECT_EQ(all,
            "MetaBase.xml, line 4: the element \"IIsFtpServer\" has no Location\n"
            "MetaBase.xml, line 4: text inside \"MBProperty\", where it does not belong\n"
            "MetaBase.xml, line 5: the Location \"LM/a\" of \"a\" does not begin with \"/\"\n"
            "MetaBase.xml, line 5: the Location \"/LM//a\" of \"a\" has an empty piece\n"
            "MetaBase.xml, line 5: the Location \"/LM/a/\" of \"a\" has an empty piece\n"
            "@, ServerComment: the property stands twice, and the first one counts (line 6)\n"
            "@: the element \"b\" inside a node, where it does not belong (line 7)\n"
            "@: text inside a node, where it does not belong (line 7)\n"
            "@, ServerComment: the property stands twice, and the first one counts (line 7)\n"
            "@: a \"Custom\" without a Name, whose ID is missing or not known (line 8)\n"
            "@, Own: the type \"BLOB\" of the \"Custom\" is not known (line 8)\n"
            "@, Handed: the attribute \"NEW\" of the \"Custom\" is not known (line 9)\n"
            "@, Handed: the property stands twice, and the first one counts (line 9)\n"
            "@, AccessFlags: the property stands twice, and the first one counts (line 10)\n"
            "@: the node stands twice, and its element on line 6 counts (line 11)\n"
            "MetaBase.xml, line 12: the Location \"/" +
                std::string(79, 'x') + "...\" of \"a\" is longer than 32767 characters\n");
  EXPECT_EQ(snapshot->oddities()[0].failureNumber, number::kBadElement);
  EXPECT_EQ(snapshot->oddities().back().failureNumber, number::kBadLocation);
  // The node's own element spells it, wherever it stands.
  shows("/MSFTPSVC/1/root", "ADsPath='IIS://Web01/MsFtpSvc/1/ROOT'; Handed='h'");
  shows("/MSFTPSVC/1", "Class='IIsFtpServer'; ServerComment='first'; AccessFlags=1; LogType=1");
  fails("/MSFTPSVC/1", "Own", number::kWrongValue, {"has a type that is not known"});
}

TEST_F(MetabaseTest, AServerStaysWhatWasPinnedForIt) {
  write("<IIsFtpServer Location ='/LM/MSFTPSVC/1' ServerComment='before'/>");
  const ObjectRef old = object("/MSFTPSVC/1");
  platform::metabase::mapServer(u"Alias", platform::metabase::snapshotOf(u"WEB01"));
  write("<IIsFtpServer Location ='/LM/MSFTPSVC/1' ServerComment='after'/>");
  shows("/MSFTPSVC/1", "ServerComment='after'");
  shows("IIS://alias/MSFTPSVC/1", "ServerComment='before'");
  platform::metabase::unmapServer(u"alias");
  shows(old, "ServerComment='before'");
}

TEST_F(MetabaseTest, AFileIsReadAsItStoodAtOneMoment) {
  const test::Folder directory;
  const std::filesystem::path file = directory / kFile;
  const auto read = [&] { platform::metabase::readFile(file); };
  fails(number::kFileNotFound, {file.string()}, read);
  std::filesystem::create_directory(file);
  fails(number::kFileIsDirectory, {file.string()}, read);
  std::filesystem::remove(file);
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  fails(number::kFileUnreadable, {file.string()}, read);
  std::filesystem::remove(file);

  std::ofstream(file) << kHead << kTail << std::string(1 << 22, ' ');
  std::filesystem::last_write_time(file, std::filesystem::file_time_type());
  const auto stamp = platform::metabase::readFile(file).stamp;
  EXPECT_EQ(platform::metabase::stampOf(file), stamp);
  // Another file of the same size and time; then one that never rests.
  std::filesystem::copy_file(file, directory / "other");
  std::filesystem::last_write_time(directory / "other", std::filesystem::file_time_type());
  std::filesystem::rename(directory / "other", file);
  EXPECT_NE(platform::metabase::readFile(file).stamp, stamp);
  std::jthread restless([&](const std::stop_token& stop) {
    for (std::filesystem::file_time_type time; !stop.stop_requested(); time += std::chrono::seconds(1))
      std::filesystem::last_write_time(file, time);
  });
  std::int32_t refused = 0;
  while (refused == 0) {
    try {
      read();
    } catch (const automation::Failure& failure) {
      refused = failure.number();
    }
  }
  EXPECT_EQ(refused, number::kFileChanged);
}

}  // namespace
