#include "tests/support/postgres.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "inventory/postgres/connection.h"

namespace test {
namespace {

namespace fs = std::filesystem;

// Debian installs the programs of each version in a separate folder.
std::string programFolder() {
  std::vector<std::string> found;
  std::error_code error;
  for (const auto& version : fs::directory_iterator("/usr/lib/postgresql", error)) {
    if (fs::exists(version.path() / "bin" / "initdb")) found.push_back((version.path() / "bin").string());
  }
  if (found.empty()) throw std::runtime_error("PostgreSQL's server is not installed (run scripts/test)");
  return *std::max_element(found.begin(), found.end());
}

bool copyFolder(const fs::path& from, const fs::path& to) {
  return std::system(("cp -a '" + from.string() + "' '" + to.string() + "' 2>/dev/null").c_str()) == 0;
}

const passwd& unprivileged() {
  for (const char* name : {"postgres", "nobody"}) {
    if (const passwd* user = ::getpwnam(name)) return *user;
  }
  throw std::runtime_error("there is no user 'postgres' or 'nobody' to run PostgreSQL as");
}

pid_t startProcess(std::vector<std::string> arguments, const std::string& log, int deathSignal,
                   int largestFile = 0) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  if (::getuid() == 0) {
    const passwd& user = unprivileged();
    if (::setgroups(0, nullptr) != 0 || ::setgid(user.pw_gid) != 0 || ::setuid(user.pw_uid) != 0)
      ::_exit(126);
  }
  if (largestFile > 0) {
    const rlimit limit{static_cast<rlim_t>(largestFile) << 20, static_cast<rlim_t>(largestFile) << 20};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  // Ends with the test.
  ::prctl(PR_SET_PDEATHSIG, deathSignal);
  ::setenv("LC_ALL", "C.UTF-8", 1);
  ::unsetenv("LD_PRELOAD");
  std::vector<char*> raw;
  for (std::string& argument : arguments) raw.push_back(argument.data());
  raw.push_back(nullptr);
  if (::chdir("/") == 0) ::execv(raw[0], raw.data());
  ::_exit(127);
}

}  // namespace

PostgresServer::PostgresServer(std::unique_ptr<Folder> folder, std::vector<std::string> settings,
                               int largestFile)
    : folder_(std::move(folder)),
      programs_(programFolder()),
      settings_(std::move(settings)),
      largestFile_(largestFile) {
  fs::permissions(folder_->path(), fs::perms(0755));
  const fs::path serverFolder = folder_->folder("server");
  if (::getuid() == 0 && ::chown(serverFolder.c_str(), unprivileged().pw_uid, unprivileged().pw_gid) != 0)
    throw std::runtime_error("cannot change the owner of the server folder");
  createData(serverFolder / "data");
  start();
}

// initdb takes longer than most tests, so they copy what the first one has created.
void PostgresServer::createData(const fs::path& data) const {
  const fs::path kept = POSTGRES_DATA + replaced(programs_, "/", "_") + (largestFile_ > 0 ? "-small" : "");
  if (fs::exists(kept) && copyFolder(kept, data)) return;
  fs::remove_all(data);
  std::vector<std::string> make = {program("initdb"), "-D", data.string(), "-U", "master", "-A", "trust"};
  make.insert(make.end(), {"-E", "UTF8", "--locale=C.UTF-8", "--no-sync"});
  if (largestFile_ > 0) make.emplace_back("--wal-segsize=1");
  const pid_t maker = startProcess(make, (*folder_ / "log").string(), SIGKILL);
  int status = -1;
  if (::waitpid(maker, &status, 0) != maker || status != 0)
    throw std::runtime_error("initdb has failed: " + contents(*folder_ / "log"));
  std::ofstream(data / "pg_hba.conf") << "local all /^secret scram-sha-256\n"
                                         "local all secret scram-sha-256\n"
                                         "local all all trust\n";
  const fs::path own = kept.string() + "." + std::to_string(::getpid());
  std::error_code ignored;
  if (copyFolder(data, own)) fs::rename(own, kept, ignored);
  fs::remove_all(own, ignored);
}

PostgresServer::~PostgresServer() {
  stop(SIGQUIT);
}

void PostgresServer::start() {
  std::vector<std::string> arguments = {programs_ + "/postgres", "-D", socket() + "/data", "-k", socket()};
  for (const char* setting :
       {"listen_addresses=", "fsync=off", "max_connections=40", "log_min_messages=fatal"}) {
    arguments.insert(arguments.end(), {"-c", setting});
  }
  for (const std::string& setting : settings_) arguments.insert(arguments.end(), {"-c", setting});
  id_ = startProcess(arguments, (*folder_ / "log").string(), SIGQUIT, largestFile_);
  while (PQping(address("master", "postgres").c_str()) != PQPING_OK) {
    requireRunning();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void PostgresServer::requireRunning() const {
  siginfo_t info{};
  if (::waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0)
    throw std::runtime_error("PostgreSQL has ended: " + contents(*folder_ / "log"));
}

void PostgresServer::stop(int signal) {
  if (id_ < 0) return;
  ::kill(id_, signal);
  ::waitpid(id_, nullptr, 0);
  id_ = -1;
}

void PostgresServer::crashAndRestart() {
  stop(SIGQUIT);
  start();
}

void PostgresServer::waitForBackendExit(const std::string& process) const {
  for (bool isThere = true; isThere; std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
    try {
      isThere = !run("select 1 from pg_stat_activity where pid = " + process).empty();
    } catch (const inventory::Error&) {
      requireRunning();  // restarting
    }
  }
}

std::string PostgresServer::address(const std::string& role, const std::string& database,
                                    const std::string& password) const {
  return "postgresql://" + role + (password.empty() ? "" : ":" + password) + "@/" + database +
         "?host=" + socket();
}

std::string PostgresServer::run(const std::string& sql, const std::string& database) const {
  inventory::postgres::Connection connection(address("master", database));
  const inventory::postgres::ResultSet result = connection.run(sql);
  std::string values;
  for (int row = 0; row < result.rows(); ++row)
    values += (row == 0 ? "" : "\n") + std::string(result.text(row, 0).value_or("-"));
  return values;
}

}  // namespace test
