// Processes that a test starts, the program among them.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/folder.h"
#include "tests/support/metabase_generator.h"

namespace test {

using Arguments = std::vector<std::string>;

// Starts a copy of this process that does `work` and ends with status 0, or 1 where that throws.
pid_t inChild(const std::function<void()>& work);

// Waits for a child. Its exit status, or minus the signal that has ended it.
int endOf(pid_t child);

struct Result {
  int status = -1;  // as endOf gives it
  std::string out;
  std::string err;
};

// The program on its way. Ended by its owner at the latest. Its temporary files are in the folder's
// "temporary", unless `prepare`, which runs before it, says something else.
class Program {
 public:
  Program(const Folder& folder, const Arguments& arguments, const std::function<void()>& prepare = {});
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t id() const { return id_; }
  // Whether it hasn't ended yet.
  bool runs() const;
  // Waits for its end.
  Result end();

 private:
  pid_t id_;
  int out_;
  int err_;
};

inline Result run(const Folder& folder, const Arguments& arguments,
                  const std::function<void()>& prepare = {}) {
  return Program(folder, arguments, prepare).end();
}

// The same for one that must end with a status and, if given, print some words.
Result runExpecting(const Folder& folder, const Arguments& arguments, int status, const std::string& words,
                    const std::function<void()>& prepare = {});

// Replaces the standard output by one that nothing reads.
void withoutReader();

// What a file's owner may not do root may not either, from then on.
void withoutRights();

// Runs the program on a terminal of so many columns, to which all output goes. `shown` may look at what it
// has shown so far and do something about it.
Result runOnTerminal(const Folder& folder, unsigned short columns, const Arguments& arguments,
                     const std::function<void(pid_t, const std::string&)>& shown = {});

// A generated metabase, as the program takes one: with the name of its server.
std::string generated(const Folder& folder, const std::string& server, const test::MetabaseOptions& options);

}  // namespace test
