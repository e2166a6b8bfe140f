#include "tests/support/process.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace test {
namespace {

std::string readAndClose(int& file) {
  std::string text(static_cast<std::size_t>(::lseek(file, 0, SEEK_END)), '\0');
  if (::pread(file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) text = "unreadable";
  ::close(file);
  file = -1;
  return text;
}

// Replaces this process by the program under test.
[[noreturn]] void execProgram(const Folder& folder, Arguments arguments,
                              const std::function<void()>& prepare) {
  ::setenv("TMPDIR", folder.folder("temporary").c_str(), 1);
  if (prepare) prepare();
  arguments.insert(arguments.begin(), IISINVENTORY_PROGRAM);
  std::vector<char*> raw;
  for (std::string& argument : arguments) raw.push_back(argument.data());
  raw.push_back(nullptr);
  ::execv(raw[0], raw.data());
  ::_exit(127);
}

}  // namespace

pid_t runInChild(const std::function<void()>& work) {
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot start a process");
  if (child != 0) return child;
  try {
    work();
    ::_exit(0);
  } catch (...) {
    ::_exit(1);
  }
}

int waitFor(pid_t child) {
  int status = 0;
  if (::waitpid(child, &status, 0) != child) return -1000;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

Program::Program(const Folder& folder, const Arguments& arguments, const std::function<void()>& prepare)
    : out_(::memfd_create("out", MFD_CLOEXEC)), err_(::memfd_create("err", MFD_CLOEXEC)) {
  id_ = runInChild([&] {
    ::dup2(out_, STDOUT_FILENO);
    ::dup2(err_, STDERR_FILENO);
    execProgram(folder, arguments, prepare);
  });
}

Program::~Program() {
  if (out_ < 0) return;
  ::kill(id_, SIGKILL);
  wait();
}

bool Program::isRunning() const {
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

Result Program::wait() {
  const int status = waitFor(id_);
  return {status, readAndClose(out_), readAndClose(err_)};
}

Result runExpecting(const Folder& folder, const Arguments& arguments, int status, const std::string& words,
                    const std::function<void()>& prepare) {
  const Result result = run(folder, arguments, prepare);
  const std::string all = result.out + result.err;
  EXPECT_EQ(result.status, status) << testing::PrintToString(arguments) << all;
  EXPECT_NE(all.find(words), std::string::npos) << testing::PrintToString(arguments) << words << all;
  return result;
}

std::string runShell(const std::string& command) {
  const std::string folder = std::filesystem::path(IISINVENTORY_PROGRAM).parent_path();
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(
      ::popen(("PATH=" + folder + ":$PATH; " + command).c_str(), "r"), &::pclose);
  std::string text;
  for (int c = std::fgetc(pipe.get()); c != EOF; c = std::fgetc(pipe.get())) text += static_cast<char>(c);
  return text;
}

int killRounds() {
  const char* const rounds = std::getenv("TORVIN_KILL_ROUNDS");
  return rounds == nullptr ? 30 : std::stoi(rounds);
}

void breakOutputPipe() {
  int ends[2];
  if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
  ::close(ends[0]);
  ::dup2(ends[1], STDOUT_FILENO);
}

void dropFileCapabilities() {
  for (const int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) ::prctl(PR_CAPBSET_DROP, right, 0, 0, 0);
}

Result runOnTerminal(const Folder& folder, unsigned short columns, const Arguments& arguments,
                     const std::function<void(pid_t, const std::string&)>& shown) {
  winsize size{};
  size.ws_col = columns;
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
  if (child == 0) execProgram(folder, arguments, [] { ::setenv("TERM", "xterm", 1); });
  Result result;
  char buffer[4096];
  for (ssize_t got = 0; (got = ::read(terminal, buffer, sizeof buffer)) > 0;) {
    result.out.append(buffer, static_cast<std::size_t>(got));
    if (shown) shown(child, result.out);
  }
  result.status = waitFor(child);
  ::close(terminal);
  return result;
}

std::string generateMetabase(const Folder& folder, const std::string& server,
                             const test::MetabaseOptions& options) {
  const std::filesystem::path file = folder / (server + ".xml");
  std::ofstream out(file, std::ios::binary);
  test::writeMetabase(options, out);
  return server + "=" + file.string();
}

}  // namespace test
