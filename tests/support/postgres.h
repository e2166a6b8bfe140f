// A PostgreSQL server for one test: real, in a folder of its own, on a socket there.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/folder.h"

namespace test {

// Made by Debian's initdb, as an unprivileged user where this process is root's, whom it refuses. Stopped and
// removed by its owner.
class PostgresServer {
 public:
  // In a folder that is given to it for its own use. No file of it grows beyond so many MiB, where that is
  // told.
  explicit PostgresServer(std::unique_ptr<Folder> folder = std::make_unique<Folder>(),
                          std::vector<std::string> settings = {}, int largestFile = 0);
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  // The address of a database. Nobody needs a password, but for a role called "secret...".
  std::string address(const std::string& role, const std::string& database,
                      const std::string& password = "") const;
  std::string socket() const { return (*folder_ / "server").string(); }
  // What it has written to its log.
  std::string log() const { return contents(*folder_ / "log"); }
  // The process that all others of it come from.
  pid_t id() const { return id_; }
  // One of PostgreSQL's own programs.
  std::string program(const std::string& name) const { return programs_ + "/" + name; }

  // Runs SQL as its master in a database and gives the values of the first column, one a line.
  std::string run(const std::string& sql, const std::string& database = "postgres") const;

  // Ends as if the machine had lost its power, and starts again.
  void fallAndRise();

  // Waits until one of its processes is gone, with all that its end brings down.
  void awaitEnd(const std::string& process) const;

 private:
  void start();
  void stop(int signal);

  const std::unique_ptr<Folder> folder_;
  const std::string programs_;
  const std::vector<std::string> settings_;
  const int largestFile_;
  pid_t id_ = -1;
};

}  // namespace test
