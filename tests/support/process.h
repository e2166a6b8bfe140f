// Processes that a test starts, and the files that they share with it.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/metabase_generator.h"

namespace test {

// A directory that goes with its owner.
class Directory {
 public:
  Directory() : path_(std::filesystem::temp_directory_path() / "strength.XXXXXX") {
    std::string pattern = path_.string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("can't make a directory");
    path_ = pattern;
  }
  ~Directory() { std::filesystem::remove_all(path_); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

  // A directory inside it.
  std::filesystem::path folder(const std::string& name) const {
    std::filesystem::create_directories(path_ / name);
    return path_ / name;
  }

  // A generated metabase, as the program takes one: with the name of its server.
  std::string server(const std::string& name, const bench::MetabaseOptions& options) const {
    std::ofstream out(path_ / (name + ".xml"), std::ios::binary);
    bench::writeMetabase(options, out);
    return name + "=" + (path_ / (name + ".xml")).string();
  }

 private:
  std::filesystem::path path_;
};

// Starts a copy of this process that does `work` and ends with status 0, or 1 where it throws.
template <typename Work>
pid_t inChild(Work&& work) {
  const pid_t child = fork();
  if (child != 0) return child;
  try {
    work();
    _exit(0);
  } catch (...) {
    _exit(1);
  }
}

// Makes this process the program under test.
[[noreturn]] inline void become(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), IISINVENTORY_PROGRAM);
  std::vector<char*> raw;
  for (std::string& argument : arguments) raw.push_back(argument.data());
  raw.push_back(nullptr);
  execv(raw[0], raw.data());
  _exit(127);
}

// Starts the program with the command "collect" and without output.
inline pid_t startCollect(const std::filesystem::path& database, const std::string& server) {
  return inChild([&] { become({"collect", "--quiet", "--database", database.string(), server}); });
}

// Waits for a child. Its exit status, or minus the signal that has ended it.
inline int endOf(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child) return -1000;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace test
