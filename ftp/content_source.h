// The columns of a directory that are derived from its path and flags.
#pragma once

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// From Path: a network share starts with two backslashes.
inline TextView ContentSourceText(TextView strPath) {
  return strPath.starts_with(u"\\\\") ? u"A directory located on another computer"sv
                                      : u"A directory located on this computer"sv;
}

// From DontLog, negated.
inline TextView LogVisitsWord(std::int32_t lngDontLog) {
  return lngDontLog == 0 ? u"Yes"sv : u"No"sv;
}

}  // namespace TORVINFTPAppDataCom
