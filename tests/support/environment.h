// Everything that the component meets outside itself, set up for one test.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "automation/runtime.h"
#include "platform/store/private_database.h"
#include "tests/support/fakes.h"
#include "tests/support/folder.h"
#include "tests/support/seam.h"

namespace test {

// What stands behind the seam: a metabase of fakes, or the layer with the sample server WEB01; in both cases
// a private database that connections are redirected to, whose rows are buffered or inserted at once, or a
// database file.
enum class Layer { kFakes, kWaiting, kPrivate, kFile };

// Enters it all in the process's runtime, with the journal in between, and takes it out again. One at a time.
class Environment {
 public:
  explicit Environment(Layer layer = Layer::kFakes);
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  std::shared_ptr<Journal> journal = std::make_shared<Journal>();
  automation::Text server = u"WEB01";
  automation::Text database;

  // The metabase of fakes. A path is that behind "IIS://WEB01/"; the node and those above it are made where
  // they are missing.
  FakeObject& node(automation::TextView path);
  // A site, a directory, a pool with all that the tabs read. The site has a root, the pool no applications.
  FakeObject& site(automation::TextView id, automation::Variant comment);
  FakeObject& directory(automation::TextView path, automation::TextView localPath);
  FakeObject& pool(automation::TextView name);
  // An IPSecurity object.
  static automation::Variant ipSecurity(bool grantByDefault, const std::vector<automation::Text>& list);
  // The applications that WMI names for a pool.
  FakeObject& applications(automation::TextView poolName, automation::Variant paths);
  std::int16_t version = 6;

  // The rows of a table: the values of a row with "|" in between, "-" where nothing was written.
  std::vector<std::string> rows(automation::TextView table) const;

  // The database behind the layer, as an outsider reaches it, or its owner where it is private.
  std::shared_ptr<sqlite::Database> openDatabase() const;
  void dropTable(const std::string& name);
  // How many connections to a private database are open.
  long openConnections() const;
  // Why the private database can't be relied on; empty where it can.
  std::string fatalError() const { return private_ ? private_->fatalError() : ""; }

  // Where the mouse pointer stands.
  int pointer() const;
  // What the progress objects have received.
  std::vector<std::string> progress() const;

  // The logs, byte for byte but for "<time>" where a record has its time.
  std::string log() const;
  std::string appLog() const;

  // Where the logs go: what SetErrorLogPath is to be called with.
  automation::Text appLogDirectory;
  automation::Text logFile;

  // The progress objects.
  automation::ObjectRef status;
  automation::ObjectRef bar;
  automation::ObjectRef count;

 private:
  void setUpFakes();
  void setUpLayer();
  void setUpStore();
  void serve(automation::TextView prefix, automation::MonikerServer behind);
  void serveClass(automation::TextView id, automation::ClassServer behind);

  Layer layer_;
  bool hasDropped_ = false;
  Folder folder_;
  std::unique_ptr<platform::store::PrivateDatabase> private_;
  std::optional<platform::store::ConnectionRedirect> redirect_;
  FakeObject metabase_;
  FakeObject wmi_;
  FakeObject statusBar_;
  FakeObject progressBar_;
  FakeObject processCount_;
  automation::ObjectRef screen_;
};

// A record as a log holds it. The number is in hexadecimal, without blanks.
std::string record(const std::string& object, const std::string& function, const std::string& number,
                   const std::string& message);
std::size_t recordsIn(const std::string& log);
// That of a sabotaged operation.
std::string sabotaged(const std::string& object, const std::string& function);

}  // namespace test
