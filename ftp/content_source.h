// The columns of a directory that its path and its flags fill.
#pragma once

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Path: a network share begins with two backslashes.
inline TextView ContentSourceText(TextView strPath) {
  return strPath.starts_with(u"\\\\") ? u"A directory located on another computer"sv
                                      : u"A directory located on this computer"sv;
}

// DontLog, the other way round.
inline TextView LogVisitsWord(std::int32_t lngDontLog) {
  return lngDontLog == 0 ? u"Yes"sv : u"No"sv;
}

}  // namespace TORVINFTPAppDataCom
