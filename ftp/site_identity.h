// The identity of an FTP site, as the collectors of its tabs write it.
#pragma once

#include "frame/component.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

// Replaces the name of a site without one.
inline constexpr TextView kNoSiteName = u"Value not set";

// The service's Info node is listed among the sites but is not a site.
inline bool IsInfoNode(TextView strId) {
  return equalsIgnoringCase(strId, u"Info"sv);
}

// The site's name, or its replacement if `servercomment` is not set.
inline Text ReadSiteName(const ObjectRef& objSite) {
  Variant vComment = read(objSite, u"servercomment"sv);
  return vComment.isNull() ? Text(kNoSiteName) : toText(std::move(vComment));
}

// The first columns of every row of a site's tabs.
inline void WriteSiteIdentity(const ObjectRef& objRs, TextView strServerName, TextView strSiteName,
                              TextView strId) {
  WriteText(objRs, u"Server name"sv, strServerName);
  WriteText(objRs, u"FTP site name"sv, strSiteName);
  WriteText(objRs, u"Identifier"sv, strId);
}

}  // namespace TORVINFTPAppDataCom
