#include <stdexcept>

#include "host/cli/command_options.h"
#include "host/console/text.h"
#include "host/redact/redacted_files.h"
#include "host/sources/sources.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "Writes a copy of a metabase that can be handed out, for example to report a\n"
    "defect. Names, paths, comments and other texts are replaced, the same text by\n"
    "the same word; passwords are removed; structure, types, numbers and flags are\n"
    "kept. The table of the replacements, in CSV, is for you only.\n"
    "\n"
    "Example:\n"
    "  iisinventory redact WEB01/MetaBase.xml -o redacted.xml --table words.csv";

struct Raw {
  std::string metabase;
  std::string output;
  std::string table;
  bool force = false;
  std::uint64_t maxSize = 0;
};

int redact(const Raw& raw, RedactionPaths paths, Output& output) {
  const Sources sources = findSources({raw.metabase}, raw.maxSize, Sources::Names::kAny);
  if (!sources.problems.empty()) throw std::runtime_error(sources.problems.front());
  if (sources.servers.size() != 1) {
    throw std::runtime_error(
        "cannot redact '" + raw.metabase + "': it has " +
        pluralize(static_cast<std::int64_t>(sources.servers.size()), "metabase", "metabases") +
        " (give one)");
  }
  const Source& source = sources.servers.front().source;
  if (source.kind != Source::Kind::kStream) paths.source = source.path;
  checkRedactionPaths(paths);
  writeRedaction(redactMetabase(readSource(source, raw.maxSize), source.shown()), paths, output);
  return 0;
}

}  // namespace

void addRedact(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("redact", "Write a metabase without its names and secrets");
  command.argument("METABASE", raw->metabase, "Metabase file, folder or archive; - for stdin",
                   Presence::kRequired);
  command.option("-o,--output", raw->output, "FILE", "Redacted file to write", Presence::kRequired);
  command.option("--table", raw->table, "FILE", "File for the table (default: stdout)");
  command.flag("--force", raw->force, "Replace existing files");
  addMaxSize(command, raw->maxSize);
  command.footer(kFooter);
  command.onParsed([raw, &action] {
    if (raw->output == "-") throw UsageError("--output: a file is required, to be written as a whole");
    RedactionPaths paths{{}, wholePath("--output", raw->output), {}, raw->force};
    if (!raw->table.empty() && raw->table != "-") paths.table = wholePath("--table", raw->table);
    action = [raw, paths](Output& output) { return redact(*raw, paths, output); };
  });
}

}  // namespace host
