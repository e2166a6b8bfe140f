// The command line.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/output.h"
#include "host/query/findings.h"
#include "host/sections.h"
#include "host/usage_error.h"
#include "inventory/inventory.h"

namespace host {

struct CollectOptions {
  std::vector<std::string> metabases;  // as given
  std::uint64_t maxSize = 0;           // of what is read from pipes and archives, in bytes
  bool listOnly = false;
  bool dryRun = false;   // nothing is written, neither rows nor logs
  std::string database;  // a file's absolute path, or the address of one on a server
  inventory::Access access;
  std::filesystem::path logDirectory;
  Selection selection;
  bool replace = false;  // also a collection that looked at more
  unsigned jobs = 1;
  bool quiet = false;
  bool verbose = false;  // a line for each server
};

enum class Format { kTable, kCsv, kJson };

// Rows whose value in a column is, isn't or contains a text.
struct Condition {
  enum class Kind { kIs, kIsNot, kContains };
  std::string column;
  Kind kind = Kind::kIs;
  std::string text;
};

struct ShowOptions {
  std::vector<std::string> tables;  // tables, tabs or views; empty for the list of tables
  std::string database;
  inventory::Access access;
  std::vector<std::string> servers;  // all where none is named
  std::string at;                    // a time in UTC; empty for the current collections
  std::vector<std::string> columns;  // all where none is named
  std::vector<Condition> conditions;
  std::string sort;  // the column to sort by; empty for the order of publication
  bool isReversed = false;
  Format format = Format::kTable;
  bool isWide = false;
  bool vertical = false;
  bool writeBom = false;
};

struct CopyOptions {
  std::string from;
  std::string to;
  std::vector<std::string> servers;  // all where none is named
  inventory::Access access;          // of both
};

struct DiffOptions {
  std::string old;
  std::string other;                 // empty where one database alone is given
  inventory::Access access;          // of both
  std::string server;                // empty for every one
  std::string against;               // another one, in the same database
  std::string since;                 // a time in UTC, of one database: compares with the collections then
  std::vector<std::string> ignored;  // columns
  Format format = Format::kTable;
};

struct ReportOptions {
  std::string database;
  inventory::Access access;
  std::vector<std::string> servers;  // all where none is named
  std::filesystem::path output;      // absolute; empty for the standard output
  std::string at = {};               // a time in UTC; empty for the current collections
  std::string profile = {};          // of the rules; empty for rules that were named
  std::vector<Rule> rules = {};
  FindingsOptions findings = {};
};

struct CheckOptions {
  std::vector<std::string> metabases;  // as given
  std::uint64_t maxSize = 0;
};

// Reads the command line and gives what is to be done. Throws UsageError.
std::function<int(Output&)> parseCommandLine(int argumentCount, const char* const* arguments);

// The help of the program as a whole.
std::string programHelp();

}  // namespace host
