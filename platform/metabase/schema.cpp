#include "platform/metabase/schema.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <vector>

namespace platform::metabase {
namespace {

// "LogExtFileFlags Metabase Property".
constexpr Flag kLogExtFileFlags[] = {
    {"LogExtFileDate", 0x00000001},       {"LogExtFileTime", 0x00000002},
    {"LogExtFileClientIp", 0x00000004},   {"LogExtFileUserName", 0x00000008},
    {"LogExtFileSiteName", 0x00000010},   {"LogExtFileComputerName", 0x00000020},
    {"LogExtFileServerIp", 0x00000040},   {"LogExtFileMethod", 0x00000080},
    {"LogExtFileUriStem", 0x00000100},    {"LogExtFileUriQuery", 0x00000200},
    {"LogExtFileHttpStatus", 0x00000400}, {"LogExtFileWin32Status", 0x00000800},
    {"LogExtFileBytesSent", 0x00001000},  {"LogExtFileBytesRecv", 0x00002000},
    {"LogExtFileTimeTaken", 0x00004000},  {"LogExtFileServerPort", 0x00008000},
    {"LogExtFileUserAgent", 0x00010000},  {"LogExtFileCookie", 0x00020000},
    {"LogExtFileReferer", 0x00040000},    {"LogExtFileProtocolVersion", 0x00080000},
    {"LogExtFileHost", 0x00100000},       {"LogExtFileHttpSubStatus", 0x00200000},
};

// "AccessFlags Metabase Property".
constexpr Flag kAccessFlags[] = {
    {"AccessRead", 0x0001},          {"AccessWrite", 0x0002},           {"AccessExecute", 0x0004},
    {"AccessSource", 0x0010},        {"AccessScript", 0x0200},          {"AccessNoRemoteWrite", 0x0400},
    {"AccessNoRemoteRead", 0x1000},  {"AccessNoRemoteExecute", 0x2000}, {"AccessNoRemoteScript", 0x4000},
    {"AccessNoPhysicalDir", 0x8000},
};

// "AccessSSLFlags Metabase Property".
constexpr Flag kAccessSslFlags[] = {
    {"AccessSSL", 0x0008},        {"AccessSSLNegotiateCert", 0x0020}, {"AccessSSLRequireCert", 0x0040},
    {"AccessSSLMapCert", 0x0080}, {"AccessSSL128", 0x0100},
};

// "AuthFlags Metabase Property".
constexpr Flag kAuthFlags[] = {
    {"AuthAnonymous", 0x0001}, {"AuthBasic", 0x0002},    {"AuthNTLM", 0x0004},
    {"AuthMD5", 0x0010},       {"AuthPassport", 0x0040},
};

// "DirBrowseFlags Metabase Property".
constexpr Flag kDirBrowseFlags[] = {
    {"DirBrowseShowDate", 0x00000002},     {"DirBrowseShowTime", 0x00000004},
    {"DirBrowseShowSize", 0x00000008},     {"DirBrowseShowExtension", 0x00000010},
    {"DirBrowseShowLongDate", 0x00000020}, {"EnableDefaultDoc", 0x40000000},
    {"EnableDirBrowsing", 0x80000000},
};

// "LogEventOnRecycle Metabase Property".
constexpr Flag kRecycleFlags[] = {
    {"AppPoolRecycleTime", 0x01},           {"AppPoolRecycleRequests", 0x02},
    {"AppPoolRecycleSchedule", 0x04},       {"AppPoolRecycleMemory", 0x08},
    {"AppPoolRecycleIsapiUnhealthy", 0x10}, {"AppPoolRecycleOnDemand", 0x20},
    {"AppPoolRecycleConfigChange", 0x40},   {"AppPoolRecyclePrivateMemory", 0x80},
};

constexpr std::string_view kClasses[] = {
    "IIsFtpService",        "IIsFtpServer",
    "IIsFtpVirtualDir",     "IIsFtpInfo",
    "IIsWebService",        "IIsWebServer",
    "IIsWebVirtualDir",     "IIsWebDirectory",
    "IIsWebFile",           "IIsWebInfo",
    "IIsNntpService",       "IIsNntpServer",
    "IIsNntpVirtualDir",    "IIsSmtpService",
    "IIsSmtpServer",        "IIsSmtpVirtualDir",
    "IIsApplicationPools",  "IIsApplicationPool",
    "IIsFilters",           "IIsFilter",
    "IIsCertMapper",        "IIsCompressionSchemes",
    "IIsCompressionScheme", "IIsLogModules",
    "IIsLogModule",         "IIsCustomLogModule",
    "IIsMimeMap",           "IIsComputer",
};
static_assert(std::size(kClasses) <= 32);

template <typename... Names>
constexpr std::uint32_t classes(Names... names) {
  const auto bit = [](std::string_view name) {
    return std::uint32_t{1} << (std::find(std::begin(kClasses), std::end(kClasses), name) - kClasses);
  };
  return (bit(names) | ...);
}

constexpr std::uint32_t kServers = classes("IIsFtpServer", "IIsWebServer", "IIsNntpServer", "IIsSmtpServer");
constexpr std::uint32_t kServices =
    classes("IIsFtpService", "IIsWebService", "IIsNntpService", "IIsSmtpService");
// The page names the virtual directories. What lies below one may be asked too, and is given its path.
constexpr std::uint32_t kDirectories = classes("IIsFtpVirtualDir", "IIsWebVirtualDir", "IIsNntpVirtualDir",
                                               "IIsSmtpVirtualDir", "IIsWebDirectory", "IIsWebFile");
constexpr std::uint32_t kPool = classes("IIsApplicationPool");

// Name, identifier, type, inherits, secured, default, flags, classes. A text whose page gives no default has
// an empty one, as the pages of version 5.0 say, save where a reader must be able to tell that it was never
// set.
constexpr Property kProperties[] = {
    // Every node.
    {"KeyType", 1002, Type::kString, false, false, nullptr, {}},
    {"AdminACL", 1027, Type::kBinary, true, true, nullptr, {}},
    {"AdminACLBin", 0, Type::kBinary, true, true, nullptr, {}},
    // The state of a server.
    {"Status", 0, Type::kDword, false, false, nullptr, {}},
    {"ServerState", 1016, Type::kDword, false, false, nullptr, {}, kServers},
    {"ServerCommand", 1012, Type::kDword, false, false, nullptr, {}},
    {"Win32Error", 1099, Type::kDword, false, false, nullptr, {}},
    {"ServerAutoStart", 1017, Type::kBool, false, false, "TRUE", {}, kServices | kServers},
    // Services and sites.
    // Inherited: all its pages say so. A site without one bears its service's.
    {"ServerComment", 1015, Type::kString, true, false, nullptr, {}, kServices | kServers},
    {"ServerBindings", 1023, Type::kMultiString, false, false, nullptr, {}, kServices | kServers},
    {"SecureBindings", 2021, Type::kMultiString, false, false, nullptr, {}, kServices | kServers},
    {"ServerSize", 1018, Type::kDword, true, false, "1", {}},
    {"ServerListenBacklog", 1019, Type::kDword, true, false, "40", {}},
    {"ServerListenTimeout", 1020, Type::kDword, true, false, "120", {}},
    {"ConnectionTimeout", 1013, Type::kDword, true, false, "120", {}},
    {"MaxConnections", 1014, Type::kDword, true, false, "0", {}},
    {"MaxEndpointConnections", 1024, Type::kDword, true, false, "4294967295", {}},
    {"DisableSocketPooling", 1029, Type::kBool, true, false, "FALSE", {}},
    {"MaxBandwidth", 1000, Type::kDword, true, false, "4294967295", {}},
    {"Realm", 6001, Type::kString, true, false, "", {}},
    {"MajorIIsVersionNumber", 1101, Type::kDword, false, false, nullptr, {}},
    {"MinorIIsVersionNumber", 1102, Type::kDword, false, false, nullptr, {}},
    // Logging.
    {"LogType", 4000, Type::kDword, true, false, "1", {}},
    {"LogFileDirectory", 4001, Type::kExpandString, true, false, "%windir%\\system32\\logfiles", {}},
    {"LogFilePeriod", 4003, Type::kDword, true, false, "1", {}},
    {"LogFileTruncateSize", 4004, Type::kDword, true, false, "2000000", {}},
    {"LogModuleId", 4005, Type::kString, true, false, "", {}},
    {"LogModuleUiId", 4006, Type::kString, true, false, "", {}},
    {"LogOdbcDataSource", 4007, Type::kString, true, false, "HTTPLOG", {}},
    {"LogOdbcTableName", 4008, Type::kString, true, false, "InternetLog", {}},
    {"LogOdbcUserName", 4009, Type::kString, true, false, "InternetAdmin", {}},
    {"LogOdbcPassword", 4010, Type::kString, true, true, nullptr, {}},
    // Null, as its pages say: an empty identifier would be taken for that of a format, and a site that names
    // none
    // has none that is known.
    {"LogPluginClsid", 4011, Type::kString, true, false, nullptr, {}},
    {"LogModuleList", 4012, Type::kString, true, false, "", {}},
    // By default time, client address, method, URI stem and HTTP status.
    {"LogExtFileFlags", 4013, Type::kFlags, true, false, "0x586", kLogExtFileFlags},
    {"LogFileLocaltimeRollover", 4015, Type::kBool, true, false, "FALSE", {}},
    {"DontLog", 6023, Type::kBool, true, false, "FALSE", {}},
    // FTP.
    {"ExitMessage", 5001, Type::kString, true, false, "", {}},
    {"GreetingMessage", 5002, Type::kMultiString, true, false, nullptr, {}},
    {"MaxClientsMessage", 5003, Type::kString, true, false, "", {}},
    {"MSDOSDirOutput", 5004, Type::kBool, true, false, "TRUE", {}},
    {"AllowAnonymous", 5005, Type::kBool, true, false, "TRUE", {}},
    {"AnonymousOnly", 5006, Type::kBool, true, false, "FALSE", {}},
    {"LogAnonymous", 5007, Type::kBool, true, false, "FALSE", {}},
    {"LogNonAnonymous", 5008, Type::kBool, true, false, "FALSE", {}},
    {"FtpDirBrowseShowLongDate", 5010, Type::kBool, true, false, "FALSE", {}},
    {"BannerMessage", 5011, Type::kMultiString, true, false, nullptr, {}},
    // Accounts.
    {"AnonymousUserName", 6020, Type::kString, true, false, "", {}},
    {"AnonymousUserPass", 6021, Type::kString, true, true, nullptr, {}},
    {"AnonymousPasswordSync", 6022, Type::kBool, true, false, "TRUE", {}},
    {"UNCUserName", 3002, Type::kString, true, false, "", {}},
    {"UNCPassword", 3003, Type::kString, true, true, nullptr, {}},
    {"WAMUserName", 7501, Type::kString, true, false, "", {}},
    {"WAMUserPass", 7502, Type::kString, true, true, nullptr, {}},
    {"ADConnectionsUserName", 0, Type::kString, true, false, "", {}},
    {"ADConnectionsPassword", 0, Type::kString, true, true, nullptr, {}},
    // Directories.
    {"Path", 3001, Type::kString, true, false, nullptr, {}, kDirectories},
    {"IPSecurity", 6019, Type::kIpSecurity, true, false, nullptr, {}},
    {"AccessFlags", 6016, Type::kFlags, true, false, "AccessRead", kAccessFlags},
    {"AccessSSLFlags", 6030, Type::kFlags, true, false, "0", kAccessSslFlags},
    {"AuthFlags", 6000, Type::kFlags, true, false, "AuthAnonymous", kAuthFlags},
    // By default date, time, size, extension and EnableDefaultDoc.
    {"DirBrowseFlags", 6005, Type::kFlags, true, false, "0x4000001E", kDirBrowseFlags},
    {"DefaultDoc", 6006, Type::kString, true, false, "default.htm", {}},
    {"HttpExpires", 6002, Type::kString, true, false, "", {}},
    {"HttpCustomHeaders", 6004, Type::kMultiString, true, false, nullptr, {}},
    {"HttpErrors", 6008, Type::kMultiString, true, false, nullptr, {}},
    {"HttpRedirect", 6011, Type::kString, true, false, nullptr, {}},
    {"DefaultLogonDomain", 6012, Type::kString, true, false, "", {}},
    {"ScriptMaps", 6014, Type::kMultiString, true, false, nullptr, {}},
    {"ContentIndexed", 6039, Type::kBool, true, false, "TRUE", {}},
    // Applications.
    {"AppRoot", 2103, Type::kString, true, false, nullptr, {}},
    {"AppFriendlyName", 2102, Type::kString, false, false, "", {}},
    {"AppIsolated", 2104, Type::kDword, true, false, "0", {}},
    {"AppPoolId", 9101, Type::kString, true, false, nullptr, {}},
    {"AppPackageId", 2106, Type::kString, false, false, "", {}},
    {"AppPackageName", 2107, Type::kString, false, false, "", {}},
    {"AppWamClsid", 2105, Type::kString, false, false, "", {}},
    {"WebSvcExtRestrictionList", 2168, Type::kMultiString, false, false, nullptr, {}},
    {"ApplicationDependencies", 2167, Type::kMultiString, false, false, nullptr, {}},
    {"InProcessIsapiApps", 2073, Type::kMultiString, true, false, nullptr, {}},
    {"IIs5IsolationModeEnabled", 9203, Type::kBool, false, false, "FALSE", {}},
    // Application pools.
    {"AppPoolState", 9027, Type::kDword, false, false, nullptr, {}, kPool},
    {"AppPoolCommand", 9026, Type::kDword, false, false, nullptr, {}},
    {"AppPoolAutoStart", 9028, Type::kBool, false, false, "TRUE", {}, kPool | classes("IIsApplicationPools")},
    {"PeriodicRestartTime", 9001, Type::kDword, true, false, "60", {}},
    {"PeriodicRestartRequests", 9002, Type::kDword, true, false, "0", {}},
    {"PeriodicRestartSchedule", 9020, Type::kMultiString, true, false, nullptr, {}},
    {"PeriodicRestartMemory", 9024, Type::kDword, true, false, "512000", {}},
    {"PeriodicRestartPrivateMemory", 9038, Type::kDword, true, false, "0", {}},
    {"IdleTimeout", 9005, Type::kDword, true, false, "20", {}},
    {"AppPoolQueueLength", 9017, Type::kDword, true, false, "1000", {}},
    {"CPULimit", 9023, Type::kDword, true, false, "0", {}},
    {"CPUResetInterval", 2144, Type::kDword, true, false, "0", {}},
    {"CPUAction", 9022, Type::kDword, true, false, "0", {}},
    {"MaxProcesses", 9003, Type::kDword, true, false, "1", {}},
    {"SMPAffinitized", 9007, Type::kBool, true, false, "FALSE", {}},
    {"SMPProcessorAffinityMask", 9008, Type::kDword, true, false, "4294967295", {}},
    {"PingingEnabled", 9004, Type::kBool, true, false, "TRUE", {}},
    {"PingInterval", 9013, Type::kDword, true, false, "240", {}},
    {"PingResponseTime", 9014, Type::kDword, true, false, "60", {}},
    {"RapidFailProtection", 9006, Type::kBool, true, false, "TRUE", {}},
    {"RapidFailProtectionInterval", 9029, Type::kDword, true, false, "5", {}},
    {"RapidFailProtectionMaxCrashes", 9030, Type::kDword, true, false, "5", {}},
    {"StartupTimeLimit", 9011, Type::kDword, true, false, "90", {}},
    {"ShutdownTimeLimit", 9012, Type::kDword, true, false, "90", {}},
    {"DisallowOverlappingRotation", 9015, Type::kBool, true, false, "FALSE", {}},
    {"DisallowRotationOnConfigChange", 9018, Type::kBool, true, false, "FALSE", {}},
    {"OrphanWorkerProcess", 9009, Type::kBool, true, false, "FALSE", {}},
    {"OrphanActionExe", 9031, Type::kString, true, false, "", {}},
    {"OrphanActionParams", 9032, Type::kString, true, false, "", {}},
    {"LoadBalancerCapabilities", 9034, Type::kDword, true, false, "2", {}},
    {"AutoShutdownAppPoolExe", 9035, Type::kString, true, false, "", {}},
    {"AutoShutdownAppPoolParams", 9036, Type::kString, true, false, "", {}},
    // By default time, memory and private memory.
    {"LogEventOnRecycle", 9037, Type::kFlags, true, false, "0x89", kRecycleFlags},
    {"AppPoolIdentityType", 9021, Type::kDword, true, false, "2", {}},
};

struct Tables {
  NameTable names;
  NameTable classes;
  std::vector<FlagProperty> flags;
  std::unordered_map<std::uint32_t, NameTable::Id> byIdentifier;
};

const Tables& tables() {
  static const Tables built = [] {
    Tables made;
    for (const Property& property : kProperties) {
      const NameTable::Id id = made.names.enter(property.name);
      if (property.identifier != 0) made.byIdentifier.emplace(property.identifier, id);
    }
    for (const std::string_view name : kClasses) made.classes.enter(name);
    for (NameTable::Id owner = 0; owner < std::size(kProperties); ++owner) {
      for (const Flag& flag : kProperties[owner].flags) {
        made.names.enter(flag.name);
        made.flags.push_back({owner, flag.mask});
      }
    }
    return made;
  }();
  return built;
}

struct TypeName {
  std::string_view name;
  Type type;
};
constexpr TypeName kTypeNames[] = {
    {"STRING", Type::kString},
    {"EXPANDSZ", Type::kExpandString},
    {"MULTISZ", Type::kMultiString},
    {"DWORD", Type::kDword},
    {"BOOL", Type::kBool},
    {"BINARY", Type::kBinary},
    {"IPSECLIST", Type::kIpSecurity},
};

}  // namespace

std::span<const Property> properties() {
  return kProperties;
}

std::span<const FlagProperty> flagProperties() {
  return tables().flags;
}

const NameTable& schemaNames() {
  return tables().names;
}

const NameTable& schemaClasses() {
  return tables().classes;
}

std::optional<NameTable::Id> propertyByIdentifier(std::uint32_t identifier) {
  const auto found = tables().byIdentifier.find(identifier);
  return found == tables().byIdentifier.end() ? std::nullopt : std::optional(found->second);
}

Type typeByName(std::string_view name) {
  for (const TypeName& known : kTypeNames) {
    if (equalFolded(known.name, name)) return known.type;
  }
  return Type::kUnknown;
}

}  // namespace platform::metabase
