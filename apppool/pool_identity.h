// The identity of an application pool: the first columns of every row of a pool's tabs.
#pragma once

#include "frame/component.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

inline void WritePoolIdentity(const ObjectRef& objRs, TextView strServerName, TextView strPoolName) {
  WriteText(objRs, u"Server name"sv, strServerName);
  WriteText(objRs, u"Application pool name"sv, strPoolName);
}

}  // namespace TORVINFTPAppDataCom
