#include "ftp/FTPCollection.h"

#include <utility>

#include "frame/log_record.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"

namespace TORVINFTPAppDataCom {

void FTPCollection::SetErrorLogPath(const Text& strAppErrLogPath, const Text& strErrorLogPath) {
  mFTPAppPoolSupport::mstrAppErrLogPath = strAppErrLogPath;
  mstrErrorLogPath = strErrorLogPath;
}

void FTPCollection::WriteToLog(std::int32_t aErrorNumber, const Text& aErrorMessage, const Text& aObjectName,
                               const Text& aFunctionName) {
  AppendLogRecord(mstrErrorLogPath, aErrorNumber, aErrorMessage, aObjectName, aFunctionName);
}

void FTPCollection::SetProcessStatusUpdater(ObjectRef& objStatusBar_, ObjectRef& objProgressBar_,
                                            ObjectRef& objProcessCount_) {
  objStatusBar = objStatusBar_;
  objProgressBar = objProgressBar_;
  objProcessCount = objProcessCount_;
}

void FTPCollection::IncrementProgressBar() {
  progress::IncrementProgressBar(objProgressBar);
}

void FTPCollection::SetProgressBarMax(std::int16_t intMax) {
  progress::SetProgressBarMax(objProgressBar, intMax);
}

void FTPCollection::SetStatusBarMessage(Text strMessage) {
  progress::SetStatusBarMessage(objStatusBar, std::move(strMessage));
}

void FTPCollection::SetProcessCountMessage(Text strMessage) {
  progress::SetProcessCountMessage(objProcessCount, std::move(strMessage));
}

}  // namespace TORVINFTPAppDataCom
