// The display texts of the pool tabs for a setting that is off at 0. Stays: two pairs of texts for the same
// states.
#pragma once

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Of a setting with a separate value column.
inline TextView EnabledWord(std::int32_t lngSetting) {
  return lngSetting == 0 ? u"Disabled"sv : u"Enabled"sv;
}

// Of a column whose name starts with "Enable".
inline TextView TrueWord(std::int32_t lngSetting) {
  return lngSetting == 0 ? u"False"sv : u"True"sv;
}

}  // namespace TORVINFTPAppDataCom
