#include "apppool/AppPoolCollection.h"

#include <utility>

#include "frame/guards.h"
#include "frame/log_record.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"

namespace TORVINFTPAppDataCom {

void AppPoolCollection::SetErrorLogPath(const Text& strAppErrLogPath, const Text& strErrorLogPath) {
  mFTPAppPoolSupport::mstrAppErrLogPath = strAppErrLogPath;
  mstrErrorLogPath = strErrorLogPath;
}

void AppPoolCollection::WriteToLog(std::int32_t aErrorNumber, const Text& aErrorMessage,
                                   const Text& aObjectName, const Text& aFunctionName) {
  // Stays: the record is lost, where the other class reports the failure of its log to the caller.
  Silently(
      [&] { AppendLogRecord(mstrErrorLogPath, aErrorNumber, aErrorMessage, aObjectName, aFunctionName); });
}

void AppPoolCollection::SetProcessStatusUpdater(ObjectRef& objStatusBar_, ObjectRef& objProgressBar_,
                                                ObjectRef& objProcessCount_) {
  objStatusBar = objStatusBar_;
  objProgressBar = objProgressBar_;
  objProcessCount = objProcessCount_;
}

void AppPoolCollection::IncrementProgressBar() {
  progress::IncrementProgressBar(objProgressBar);
}

void AppPoolCollection::SetProgressBarMax(std::int16_t intMax) {
  progress::SetProgressBarMax(objProgressBar, intMax);
}

void AppPoolCollection::SetStatusBarMessage(Text strMessage) {
  progress::SetStatusBarMessage(objStatusBar, std::move(strMessage));
}

void AppPoolCollection::SetProcessCountMessage(Text strMessage) {
  progress::SetProcessCountMessage(objProcessCount, std::move(strMessage));
}

}  // namespace TORVINFTPAppDataCom
