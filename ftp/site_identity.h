// Which site is this: what the collectors of FTP sites share to tell it.
#pragma once

#include "frame/component.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

// Used for the name of a site that has none.
inline constexpr TextView kNoSiteName = u"Value not set";

// The service's own Info node is listed among the sites but isn't one.
inline bool IsInfoNode(TextView strId) {
  return equalsIgnoringCase(strId, u"Info"sv);
}

// The site's name, or what is used in its place where `servercomment` isn't set.
inline Text ReadSiteName(const ObjectRef& objSite) {
  Variant vComment = read(objSite, u"servercomment"sv);
  return vComment.isNull() ? Text(kNoSiteName) : toText(std::move(vComment));
}

// The columns that every row of a site's tabs begins with.
inline void WriteSiteIdentity(const ObjectRef& objRs, TextView strServerName, TextView strSiteName,
                              TextView strId) {
  WriteText(objRs, u"Server name"sv, strServerName);
  WriteText(objRs, u"FTP site name"sv, strSiteName);
  WriteText(objRs, u"Identifier"sv, strId);
}

}  // namespace TORVINFTPAppDataCom
