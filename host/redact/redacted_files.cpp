#include "host/redact/redacted_files.h"

#include <fmt/core.h>

#include <stdexcept>
#include <system_error>
#include <vector>

#include "host/console/listing.h"
#include "host/console/output_files.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "os/file.h"

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
  std::vector<fs::path> files{paths.file};
  if (!paths.table.empty()) files.insert(files.begin(), paths.table);
  OutputFiles opened(files,
                     paths.table.empty() ? os::NewFile::Readers::kUsual : os::NewFile::Readers::kOwnerOnly);
  opened[files.size() - 1].write(redaction.file);
  if (!paths.table.empty()) {
    printTable(redaction, opened[0]);
    opened.finish();
    const auto count = static_cast<std::int64_t>(redaction.replaced.size());
    output.write(escapeForTerminal(os::shownPath(paths.file)) + ": " + pluralize(count, "text", "texts") +
                 " replaced\n");
    output.flush();
  } else {
    printed(output, 0, [&] { printTable(redaction, output); });
    opened.finish();
  }
}

}  // namespace host
