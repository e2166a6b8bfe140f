// The log format of a site, identified by the first group of its logging module's class identifier.
#pragma once

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

inline constexpr TextView kExtendedFormat = u"W3C Extended Log File Format";
inline constexpr TextView kOdbcFormat = u"ODBC Logging";
inline constexpr TextView kInternetServiceFormat = u"Microsoft IIS Log File Format";

// The first group: the eight characters after the opening brace of LogPluginClsid.
inline TextView LogClassGroup(TextView strClassId) {
  const TextView strTrimmed = trimBlanks(strClassId);
  return strTrimmed.size() < 2 ? TextView() : strTrimmed.substr(1, 8);
}

inline bool IsExtendedFormat(TextView strClassId) {
  return equalsIgnoringCase(LogClassGroup(strClassId), u"ff160663"sv);
}

// LogPluginClsid
inline TextView LogFormatText(TextView strClassId) {
  if (IsExtendedFormat(strClassId)) return kExtendedFormat;
  if (equalsIgnoringCase(LogClassGroup(strClassId), u"ff16065b"sv)) return kOdbcFormat;
  return kInternetServiceFormat;
}

}  // namespace TORVINFTPAppDataCom
