// The IIS version of a server, as reported by the host's common object.
#pragma once

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Asks the host's common object for the version of `strServerName`, after passing it the log
// `strErrorLogPath`. The object lives for this call only. Any failure propagates to the caller. Stays:
// queried again for each site, and for Info as well.
inline std::int16_t ReadServerVersion(const Text& strServerName, const Text& strErrorLogPath) {
  const ObjectRef objCommon = CreateObject(u"MARLINSCOPEGLOBALCOM.ICommonFunction"sv);
  write(objCommon, u"ErrorLogPath"sv, strErrorLogPath);
  Variant vServerName = strServerName;
  return toInt16(callByReference(objCommon, u"getos"sv, vServerName));
}

}  // namespace TORVINFTPAppDataCom
