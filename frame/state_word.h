// The state of a site in words, for the tabs of both classes.
#pragma once

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Status, the ADSI property of a site, as text. A state without a word of its own stays the number that it
// is.
inline Text StateWord(const Text& strStatus) {
  if (strStatus == u"2") return u"Running";
  if (strStatus == u"4") return u"Stopped";
  if (strStatus == u"6") return u"Paused";
  return strStatus;
}

}  // namespace TORVINFTPAppDataCom
