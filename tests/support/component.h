// The component's two classes in a world of their own, for the tests that call them directly.
#pragma once

#include "apppool/AppPoolCollection.h"
#include "ftp/FTPCollection.h"
#include "tests/support/world.h"

namespace test {

class ComponentWorld : public World {
 public:
  ComponentWorld() {
    setLogs();
    ftp.SetProcessStatusUpdater(status, bar, count);
    pools.SetProcessStatusUpdater(status, bar, count);
  }

  void spoilLog() {
    World::spoilLog();
    setLogs();
  }
  void spoilAppLog() {
    World::spoilAppLog();
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
