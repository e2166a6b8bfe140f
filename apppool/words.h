// The words of the pool tabs for a setting that is off at 0. Stays: two pairs of words for the same thing.
#pragma once

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Of a setting with a value column beside it.
inline TextView EnabledWord(std::int32_t lngSetting) {
  return lngSetting == 0 ? u"Disabled"sv : u"Enabled"sv;
}

// Of a column whose name begins with "Enable".
inline TextView TrueWord(std::int32_t lngSetting) {
  return lngSetting == 0 ? u"False"sv : u"True"sv;
}

}  // namespace TORVINFTPAppDataCom
