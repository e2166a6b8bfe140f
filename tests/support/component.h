// The component's two classes in an environment of their own, for the tests that call them directly.
#pragma once

#include "apppool/AppPoolCollection.h"
#include "ftp/FTPCollection.h"
#include "tests/support/environment.h"

namespace test {

class ComponentEnvironment : public Environment {
 public:
  ComponentEnvironment() {
    setLogs();
    ftp.SetProcessStatusUpdater(status, bar, count);
    pools.SetProcessStatusUpdater(status, bar, count);
  }

  void spoilLog() {
    Environment::spoilLog();
    setLogs();
  }
  void spoilAppLog() {
    Environment::spoilAppLog();
    setLogs();
  }

  // Both have the two logs and the progress objects.
  TORVINFTPAppDataCom::FTPCollection ftp;
  TORVINFTPAppDataCom::AppPoolCollection pools;

 private:
  void setLogs() {
    ftp.SetErrorLogPath(appLogDirectory, logFile);
    pools.SetErrorLogPath(appLogDirectory, logFile);
  }
};

}  // namespace test
