#include "frame/progress.h"

namespace TORVINFTPAppDataCom::progress {

void SetStatusBarMessage(const ObjectRef& objStatusBar, const Text& strMessage) {
  if (objStatusBar != nullptr) write(objStatusBar, u"message", strMessage);
}

void SetProgressBarMax(const ObjectRef& objProgressBar, std::int16_t intMax) {
  if (objProgressBar != nullptr) write(objProgressBar, u"Max", intMax);
}

void IncrementProgressBar(const ObjectRef& objProgressBar) {
  if (objProgressBar != nullptr) call(objProgressBar, u"increment");
}

void SetProcessCountMessage(const ObjectRef& objProcessCount, const Text& strMessage) {
  if (objProcessCount != nullptr) write(objProcessCount, u"message", strMessage);
}

Text CountText(std::int16_t intDone, std::int16_t intTotal) {
  return decimalText(intDone) + u"/" + decimalText(intTotal);
}

std::int16_t AddOne(std::int16_t intCount) {
  return narrowToInt16(intCount + 1);
}

}  // namespace TORVINFTPAppDataCom::progress
