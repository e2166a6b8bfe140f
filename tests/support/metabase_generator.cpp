#include "tests/support/metabase_generator.h"

#include <algorithm>
#include <array>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace test {
namespace {

constexpr std::string_view kLine = "\r\n";

class Writer {
 public:
  Writer(const MetabaseOptions& options, std::ostream& out)
      : options_(options), out_(out), random_(options.seed) {}

  void write() {
    out_ << "\xEF\xBB\xBF<?xml version =\"1.0\"?>" << kLine
         << "<configuration xmlns=\"urn:microsoft-catalog:XML_Metabase_V64_0\">" << kLine << "<MBProperty>"
         << kLine;
    writeFtpService();
    writeWebService();
    out_ << "</MBProperty>" << kLine << "</configuration>" << kLine;
  }

 private:
  // A number below `limit`, the same on every machine.
  std::int64_t below(std::int64_t limit) {
    return static_cast<std::int64_t>(random_() % static_cast<std::uint64_t>(limit));
  }

  template <std::size_t count>
  std::string_view oneOf(const std::array<std::string_view, count>& choices) {
    return choices[static_cast<std::size_t>(below(static_cast<std::int64_t>(count)))];
  }

  void open(std::string_view nodeClass, std::string_view location) {
    out_ << '<' << nodeClass << "\tLocation =\"" << location << '"';
    class_ = nodeClass;
  }

  void property(std::string_view name, std::string_view value) {
    out_ << kLine << "\t\t" << name << "=\"" << value << '"';
  }

  void property(std::string_view name, std::int64_t value) { property(name, std::to_string(value)); }

  void lines(std::string_view name, const std::vector<std::string>& values) {
    std::string joined;
    for (const std::string& value : values) {
      if (!joined.empty()) joined.append(kLine).append("\t\t\t");
      joined += value;
    }
    property(name, joined);
  }

  void close() { out_ << kLine << "\t>" << kLine << "</" << class_ << '>' << kLine; }

  // A list of exceptions in the readable form, which may be empty.
  void ipSecurity() {
    switch (below(4)) {
      case 0:
        lines("IPSecurity", {"GrantByDefault=TRUE", "IPDeny=" + address() + ", 255.255.255.255",
                             "IPDeny=192.168." + std::to_string(below(256)) + ".0, 255.255.255.0"});
        break;
      case 1:
        lines("IPSecurity", {"GrantByDefault=FALSE", "IPGrant=" + address() + ", 255.255.255.255"});
        break;
      default:
        break;
    }
  }

  std::string address() {
    return "10." + std::to_string(below(256)) + "." + std::to_string(below(256)) + "." +
           std::to_string(below(256));
  }

  void writeFtpService() {
    open("IIsFtpService", "/LM/MSFTPSVC");
    property("AnonymousUserName", "IUSR_SERVER");
    property("AllowAnonymous", "TRUE");
    property("ConnectionTimeout", 120);
    property("ExitMessage", "Good bye");
    lines("GreetingMessage", {"Welcome", "to the archive"});
    property("LogFileDirectory", "C:\\WINDOWS\\system32\\LogFiles");
    property("LogFilePeriod", 1);
    property("LogOdbcDataSource", "HTTPLOG");
    property("LogOdbcTableName", "InternetLog");
    property("LogOdbcUserName", "InternetAdmin");
    property("LogPluginClsid", "{FF160663-DE82-11CF-BC0A-00AA006111E0}");
    property("LogType", 1);
    property("MaxClientsMessage", "Too many users");
    property("MaxConnections", 1000);
    property("LogExtFileFlags", "LogExtFileDate | LogExtFileTime | LogExtFileClientIp | LogExtFileUserName");
    close();
    open("IIsFtpInfo", "/LM/MSFTPSVC/Info");
    property("MajorIIsVersionNumber", 6);
    property("MinorIIsVersionNumber", 0);
    close();
    for (std::int64_t site = 1; site <= options_.sites; ++site) writeFtpSite(site);
  }

  void writeFtpSite(std::int64_t site) {
    static constexpr std::array<std::string_view, 3> kFormats = {"{FF160663-DE82-11CF-BC0A-00AA006111E0}",
                                                                 "{FF160657-DE82-11CF-BC0A-00AA006111E0}",
                                                                 "{FF16065B-DE82-11CF-BC0A-00AA006111E0}"};
    static constexpr std::array<std::string_view, 4> kSizes = {"4294967295", "20971520", "524288", "1572864"};
    const std::string location = "/LM/MSFTPSVC/" + std::to_string(site);
    open("IIsFtpServer", location);
    property("LogPluginClsid", oneOf(kFormats));
    property("LogFilePeriod", below(5));
    property("LogFileTruncateSize", oneOf(kSizes));
    property("MSDOSDirOutput", below(2) == 0 ? "TRUE" : "FALSE");
    property("ServerAutoStart", below(4) == 0 ? "FALSE" : "TRUE");
    lines("ServerBindings", {":" + std::to_string(2000 + site % 60000) + ":", address() + ":21:"});
    property("ServerComment", "FTP site number " + std::to_string(site));
    close();
    open("IIsFtpVirtualDir", location + "/ROOT");
    property("AccessFlags", "AccessRead | AccessWrite");
    property("Path", "D:\\ftp\\" + std::to_string(site));
    ipSecurity();
    close();
    std::string parent;
    for (std::int64_t directory = 0; directory < options_.directories; ++directory) {
      if (directory % std::max<std::int64_t>(options_.depth, 1) == 0) parent = location + "/ROOT";
      parent += "/dir" + std::to_string(directory);
      open("IIsFtpVirtualDir", parent);
      property("AccessFlags", below(2) == 0 ? "AccessRead" : "AccessRead | AccessWrite");
      property("DontLog", below(2) == 0 ? "TRUE" : "FALSE");
      property("Path", below(3) == 0 ? "\\\\FILE01\\share\\" + std::to_string(directory)
                                     : "D:\\content\\" + std::to_string(directory));
      ipSecurity();
      close();
    }
  }

  void writeWebService() {
    open("IIsWebService", "/LM/W3SVC");
    property("AppPoolId", "Pool 1");
    property("ConnectionTimeout", 120);
    std::vector<std::string> extensions = {"0,*.dll", "0,*.exe"};
    for (std::int64_t extension = 0; extension < options_.extensions; ++extension) {
      extensions.push_back(std::to_string(below(2)) + ",C:\\WINDOWS\\system32\\inetsrv\\ext" +
                           std::to_string(extension) + ".dll,0,EXT" + std::to_string(extension / 2) +
                           ",Extension " + std::to_string(extension / 2));
    }
    lines("WebSvcExtRestrictionList", extensions);
    close();
    open("IIsWebInfo", "/LM/W3SVC/Info");
    property("MajorIIsVersionNumber", 6);
    property("MinorIIsVersionNumber", 0);
    close();
    open("IIsApplicationPools", "/LM/W3SVC/AppPools");
    close();
    for (std::int64_t pool = 1; pool <= options_.pools; ++pool) writePool(pool);
    for (std::int64_t application = 0; application < options_.applications; ++application)
      writeApplication(application);
  }

  void writePool(std::int64_t pool) {
    open("IIsApplicationPool", "/LM/W3SVC/AppPools/Pool " + std::to_string(pool));
    property("AppPoolAutoStart", below(5) == 0 ? "FALSE" : "TRUE");
    property("AppPoolIdentityType", below(3));
    property("CPULimit", below(100001));
    property("IdleTimeout", below(60));
    property("PeriodicRestartMemory", below(600000));
    property("PeriodicRestartPrivateMemory", below(600000));
    lines("PeriodicRestartSchedule", {"03:00", "15:30"});
    property("PeriodicRestartTime", 1740);
    close();
  }

  // Ten applications per web site: its root first, the others below it.
  void writeApplication(std::int64_t application) {
    const std::int64_t site = application / 10 + 1;
    const std::string siteLocation = "/LM/W3SVC/" + std::to_string(site);
    std::string location = siteLocation + "/ROOT";
    if (application % 10 == 0) {
      open("IIsWebServer", siteLocation);
      lines("ServerBindings", {":80:", address() + ":8080:www.example.com"});
      property("ServerComment", "Web site number " + std::to_string(site));
      close();
    } else {
      location += "/app" + std::to_string(application % 10);
    }
    open("IIsWebVirtualDir", location);
    property("AppPoolId",
             "Pool " + std::to_string(application % std::max<std::int64_t>(options_.pools, 1) + 1));
    property("AppRoot", location);
    property("Path", "D:\\web\\" + std::to_string(application));
    close();
  }

  MetabaseOptions options_;
  std::ostream& out_;
  std::mt19937_64 random_;
  std::string class_;
};

}  // namespace

MetabaseOptions optionsForSites(std::int64_t sites) {
  MetabaseOptions options;
  options.sites = sites;
  options.pools = std::max<std::int64_t>(sites / 20, 1);
  options.applications = std::max<std::int64_t>(sites / 5, 1);
  options.extensions = std::max<std::int64_t>(sites / 50, 2);
  return options;
}

void writeMetabase(const MetabaseOptions& options, std::ostream& out) {
  Writer(options, out).write();
}

}  // namespace test
