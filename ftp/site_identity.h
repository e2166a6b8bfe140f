// Who is this site: the steps that the tab collectors of FTP sites begin with.
#pragma once

#include "frame/component.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

// The service's own Info node stands among the sites and is none.
inline bool IsInfoNode(const Text& strId) {
  return equalsIgnoringCase(strId, u"Info");
}

// The site's name, or what stands in its place where `servercomment` isn't set.
inline Text ReadSiteName(const ObjectRef& objSite) {
  const Variant vComment = read(objSite, u"servercomment");
  return vComment.isNull() ? Text(u"Value not set") : toText(vComment);
}

}  // namespace TORVINFTPAppDataCom
