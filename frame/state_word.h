// The display text of a site's state, for the tabs of both classes.
#pragma once

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Converts the ADSI property Status. An unknown state keeps its number.
inline Text StateWord(const Text& strStatus) {
  if (strStatus == u"2") return u"Running";
  if (strStatus == u"4") return u"Stopped";
  if (strStatus == u"6") return u"Paused";
  return strStatus;
}

}  // namespace TORVINFTPAppDataCom
