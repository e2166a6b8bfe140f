// A PostgreSQL server for one test, in a temporary folder with its socket.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/folder.h"

namespace test {

// Runs as an unprivileged user if this process runs as root. The destructor stops and deletes it.
class PostgresServer {
 public:
  // Takes over the folder. `largestFile` limits its files to that number of MiB, 0 for no limit.
  explicit PostgresServer(std::unique_ptr<Folder> folder = std::make_unique<Folder>(),
                          std::vector<std::string> settings = {}, int largestFile = 0);
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  // The address of a database. Roles need no password, except those named "secret...".
  std::string address(const std::string& role, const std::string& database,
                      const std::string& password = "") const;
  std::string socket() const { return (*folder_ / "server").string(); }
  // The contents of its log.
  std::string log() const { return contents(*folder_ / "log"); }
  // The id of its main process.
  pid_t id() const { return id_; }
  std::string program(const std::string& name) const { return programs_ + "/" + name; }

  // Runs SQL as superuser in a database and returns the values of the first column, one per line.
  std::string run(const std::string& sql, const std::string& database = "postgres") const;

  // Stops it as a power failure would, and starts it again.
  void crashAndRestart();

  // Waits until a backend process and everything that ends with it is gone.
  void waitForBackendExit(const std::string& process) const;

 private:
  void createData(const std::filesystem::path& data) const;
  void start();
  void stop(int signal);
  void requireRunning() const;

  const std::unique_ptr<Folder> folder_;
  const std::string programs_;
  const std::vector<std::string> settings_;
  const int largestFile_;
  pid_t id_ = -1;
};

}  // namespace test
