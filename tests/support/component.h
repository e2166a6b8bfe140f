// The component's two classes in a separate environment, for tests that call them directly.
#pragma once

#include "apppool/AppPoolCollection.h"
#include "ftp/FTPCollection.h"
#include "tests/support/environment.h"

namespace test {

class ComponentEnvironment : public Environment {
 public:
  ComponentEnvironment() {
    ftp.SetErrorLogPath(appLogDirectory, logFile);
    pools.SetErrorLogPath(appLogDirectory, logFile);
    ftp.SetProcessStatusUpdater(status, bar, count);
    pools.SetProcessStatusUpdater(status, bar, count);
  }

  // Both write to the two logs and use the progress objects.
  TORVINFTPAppDataCom::FTPCollection ftp;
  TORVINFTPAppDataCom::AppPoolCollection pools;
};

}  // namespace test
