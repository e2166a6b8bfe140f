// Where a redaction is written.
#pragma once

#include <filesystem>

#include "host/console/output.h"
#include "host/redact/redact.h"

namespace host {

struct RedactionPaths {
  std::filesystem::path source;  // empty if it is no file
  std::filesystem::path file;
  std::filesystem::path table;  // empty for the standard output
  bool replace = false;         // whether the other two may exist
};

// Throws std::runtime_error if a file is there already, or would replace another one of the three.
void checkRedactionPaths(const RedactionPaths& paths);

// Writes the file as a whole and the table of the replacements, in CSV, for its owner only. The file is
// not moved to its path unless its table is written.
void writeRedaction(const Redaction& redaction, const RedactionPaths& paths, Output& output);

}  // namespace host
