// The command line.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "host/gatherings.h"

namespace host {

// What is wrong with the command line, for the person who typed it.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A server and the file that stands for it. Names differ in more than case; paths are absolute.
struct Server {
  std::string name;
  std::filesystem::path file;
};

struct CollectOptions {
  std::vector<Server> servers;
  std::filesystem::path database;
  std::filesystem::path logDirectory;
  Selection selection;
  unsigned jobs = 1;
  bool quiet = false;
};

enum class Format { kTable, kCsv, kJson };

struct ShowOptions {
  std::string table;  // empty for the list of tables
  std::filesystem::path database;
  Format format = Format::kTable;
};

// A text that was asked for, and nothing else to do.
struct HelpOptions {
  std::string text;
};

using Options = std::variant<CollectOptions, ShowOptions, HelpOptions>;

// Reads the command line. Throws UsageError.
Options parseCommandLine(int argumentCount, const char* const* arguments);

// The help of the program as a whole.
std::string programHelp();

}  // namespace host
