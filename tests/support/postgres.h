// A PostgreSQL server for one test: real, in a folder of its own, on a socket there.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/folder.h"

namespace test {

// Made by Debian's initdb, as an unprivileged user where this process is root's, whom it refuses. Stopped and
// removed by its owner.
class PostgresServer {
 public:
  // `settings` are those of the server, as in "port=5433".
  explicit PostgresServer(std::vector<std::string> settings = {});
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  // The address of a database. Nobody needs a password, but for a role called "secret...".
  std::string address(const std::string& role, const std::string& database,
                      const std::string& password = "") const;
  std::string socket() const { return (folder_ / "server").string(); }

  // Runs SQL as its master in a database and gives the values of the first column, one a line.
  std::string run(const std::string& sql, const std::string& database = "postgres") const;

  // Ends as if the machine had lost its power, and starts again.
  void fallAndRise();

  // Waits until it takes connections.
  void awaitReadiness();

 private:
  void start();
  void stop(int signal);

  Folder folder_;
  const std::string programs_;
  const std::vector<std::string> settings_;
  pid_t id_ = -1;
};

}  // namespace test
