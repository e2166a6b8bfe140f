// Redacts a metabase file, so that its owner can hand it out.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "os/file.h"

namespace host {

struct Redaction {
  std::string file;
  // Each original with its replacement, in the order of their first occurrence.
  std::vector<std::pair<std::string, std::string>> replaced;
};

// Replaces the texts of a file. Structure, order, line breaks, encoding, known texts and numbers are kept;
// secured and encrypted values, comments and processing instructions are emptied. `name` is the file's name
// in messages. Throws automation::Failure for a file that is no metabase.
Redaction redactMetabase(os::FileBytes file, const std::string& name);

}  // namespace host
