#include "host/redact/redacted_files.h"

#include <fmt/core.h>

#include <stdexcept>
#include <system_error>

#include "host/console/listing.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "os/file.h"
#include "os/new_file.h"
#include "os/termination_signals.h"

namespace host {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const fs::path& path, const char* why) {
  throw std::runtime_error(fmt::format("cannot write '{}': {}", os::shownPath(path), why));
}

bool isSame(const fs::path& left, const fs::path& right) {
  std::error_code ignored;
  return left == right || fs::equivalent(left, right, ignored);
}

void printTable(const Redaction& redaction, Output& output) {
  const Listing listing{{{"Original"}, {"Replacement"}}, [&](const auto& forRow) {
                          for (const auto& [original, replacement] : redaction.replaced) {
                            forRow({original, replacement});
                          }
                        }};
  print(listing, {.format = Format::kCsv}, output);
}

}  // namespace

void checkRedactionPaths(const RedactionPaths& paths) {
  for (const fs::path& path : {paths.file, paths.table}) {
    if (path.empty()) continue;
    std::error_code error;
    const os::FileKind kind = os::statusOf(path, error).kind;
    if (!paths.source.empty() && isSame(path, paths.source)) refuse(path, "it is the file to redact");
    if (kind == os::FileKind::kRegular && !paths.replace) {
      refuse(path, "the file exists (use --force to replace it)");
    }
  }
  if (isSame(paths.file, paths.table)) refuse(paths.table, "the table is not to be in the redacted file");
}

void writeRedaction(const Redaction& redaction, const RedactionPaths& paths, Output& output) {
  const os::TerminationSignals blocked;
  os::NewFile file(paths.file);
  Output text(file.descriptor(), "'" + os::shownPath(paths.file) + "'");
  text.write(redaction.file);
  text.flush();
  if (!paths.table.empty()) {
    os::NewFile tableFile(paths.table, os::NewFile::Readers::kOwnerOnly);
    Output table(tableFile.descriptor(), "'" + os::shownPath(paths.table) + "'");
    printTable(redaction, table);
    table.flush();
    tableFile.finish();
  }
  file.finish();
  if (paths.table.empty()) {
    printTable(redaction, output);
  } else {
    const auto count = static_cast<std::int64_t>(redaction.replaced.size());
    output.write(escapeForTerminal(os::shownPath(paths.file)) + ": " + pluralize(count, "text", "texts") +
                 " replaced\n");
  }
  output.flush();
}

}  // namespace host
