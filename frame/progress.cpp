#include "frame/progress.h"

#include <utility>

#include "frame/mFTPAppPoolSupport.h"

namespace TORVINFTPAppDataCom::progress {
namespace {

// Values of MousePointer.
constexpr std::int16_t kPointerDefault = 0;
constexpr std::int16_t kPointerHourglass = 11;

}  // namespace

void SetStatusBarMessage(const ObjectRef& objStatusBar, Text strMessage) {
  if (objStatusBar != nullptr) write(objStatusBar, u"message"sv, std::move(strMessage));
}

void SetProgressBarMax(const ObjectRef& objProgressBar, std::int16_t intMax) {
  if (objProgressBar != nullptr) write(objProgressBar, u"Max"sv, intMax);
}

void IncrementProgressBar(const ObjectRef& objProgressBar) {
  if (objProgressBar != nullptr) call(objProgressBar, u"increment"sv);
}

void SetProcessCountMessage(const ObjectRef& objProcessCount, Text strMessage) {
  if (objProcessCount != nullptr) write(objProcessCount, u"message"sv, std::move(strMessage));
}

Text StatusText(TextView strDoing, TextView strName) {
  Text strStatus;
  strStatus.reserve(strDoing.size() + strName.size() + 3);
  strStatus.append(strDoing) += u' ';
  mFTPAppPoolSupport::AppendQuoted(strStatus, strName);
  return strStatus;
}

Text CountText(std::int16_t intDone, std::int16_t intTotal) {
  return decimalText(intDone) + u"/" + decimalText(intTotal);
}

std::int16_t AddOne(std::int16_t intCount) {
  return narrowToInt16(intCount + 1);
}

void ShowHourglass() {
  write(Screen(), u"MousePointer"sv, kPointerHourglass);
}

void ShowDefaultPointer() {
  write(Screen(), u"MousePointer"sv, kPointerDefault);
}

}  // namespace TORVINFTPAppDataCom::progress
