// The log format of a site, told by the first group of its logging module's class identifier.
#pragma once

#include "frame/component.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

inline constexpr TextView kExtendedFormat = u"W3C Extended Log File Format";
inline constexpr TextView kOdbcFormat = u"ODBC Logging";
inline constexpr TextView kInternetServiceFormat = u"Microsoft IIS Log File Format";

// The first group: the eight characters behind the opening brace. `strClassId` is the value of
// LogPluginClsid.
inline Text LogClassGroup(const Text& strClassId) {
  const Text strTrimmed = TrimText(strClassId);
  return strTrimmed.size() < 2 ? Text() : strTrimmed.substr(1, 8);
}

// LogPluginClsid
inline Text LogFormatText(const Text& strClassId) {
  const Text strGroup = LogClassGroup(strClassId);
  if (equalsIgnoringCase(strGroup, u"ff160663")) return Text(kExtendedFormat);
  if (equalsIgnoringCase(strGroup, u"ff16065b")) return Text(kOdbcFormat);
  return Text(kInternetServiceFormat);
}

}  // namespace TORVINFTPAppDataCom
