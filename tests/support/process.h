// Child processes of a test, including the program under test.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/folder.h"
#include "tests/support/metabase_generator.h"

namespace test {

using Arguments = std::vector<std::string>;

// Forks a child that runs `work` and exits with status 0, or 1 if `work` throws.
pid_t runInChild(const std::function<void()>& work);

// Waits for a child. Returns its exit status, or the negated number of the signal that ended it.
int waitFor(pid_t child);

struct Result {
  int status = -1;  // as returned by waitFor
  std::string out;
  std::string err;
};

// A running program, killed by the destructor. Its temporary files are in the folder's "temporary", unless
// `prepare`, which runs before it in the child, sets another folder.
class Program {
 public:
  Program(const Folder& folder, const Arguments& arguments, const std::function<void()>& prepare = {});
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t id() const { return id_; }
  bool isRunning() const;
  Result wait();

 private:
  pid_t id_;
  int out_;
  int err_;
};

inline Result run(const Folder& folder, const Arguments& arguments,
                  const std::function<void()>& prepare = {}) {
  return Program(folder, arguments, prepare).wait();
}

// The same, and expects an exit status and, if not empty, words in its output.
Result runExpecting(const Folder& folder, const Arguments& arguments, int status, const std::string& words,
                    const std::function<void()>& prepare = {});

// The standard output of a shell command, which finds the program by its name.
std::string runShell(const std::string& command);

// The number of rounds of a test of random kills: the environment variable TORVIN_KILL_ROUNDS, or 30.
int killRounds();

// Replaces the standard output by a pipe without a reader.
void breakOutputPipe();

// Drops the capabilities that let root ignore file permissions.
void dropFileCapabilities();

// Runs the program on a terminal of that many columns, which receives all output. `shown` is called with the
// output so far whenever there is more.
Result runOnTerminal(const Folder& folder, unsigned short columns, const Arguments& arguments,
                     const std::function<void(pid_t, const std::string&)>& shown = {});

// Generates a metabase and returns it as a NAME=FILE argument.
std::string generateMetabase(const Folder& folder, const std::string& server,
                             const test::MetabaseOptions& options);

}  // namespace test
