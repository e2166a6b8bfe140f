#include "host/query/diff_output.h"

#include <fmt/core.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>

#include "host/console/color.h"
#include "host/console/listing.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "os/terminal.h"

namespace host {
namespace {

bool hasOutcome(const Row& row, Outcome outcome) {
  return *row[kOutcome] == wordFor(outcome);
}

std::string skippedText(const DiffOptions& options, std::int64_t skippedServers) {
  return pluralize(skippedServers, "server has", "servers have") + " " +
         (options.since.empty() ? "only one collection" : "no collection of that time");
}

std::string valueText(const Value& value) {
  return !value ? "-" : *value == kNotKnownText ? *value : "'" + *value + "'";
}

// Writes a text, wrapped on a terminal, and coloured if it is about an unknown value.
void writeLine(std::size_t indent, const std::string& text, bool isKnown, Output& output) {
  constexpr std::size_t kMinWidth = 40;
  const std::size_t width = os::isTerminal(os::kStandardOutput)
                                ? std::max(kMinWidth, os::terminalColumns(os::kStandardOutput))
                                : text.npos;
  std::size_t lineIndent = indent;
  for (const std::string& line : wrapToWidth(escapeForTerminal(text), width - indent - 2)) {
    output.write(std::string(lineIndent, ' ') +
                 (isKnown ? line : colored(line, Ink::kNotice, os::kStandardOutput)) + "\n");
    lineIndent = indent + 2;
  }
}

// Prints the format "table": each entity once, with its differences below.
class TextPrinter {
 public:
  TextPrinter(const DiffOptions& options, Output& output)
      : options_(options),
        inOld_(options.against.empty() ? "in old" : "on " + options.servers.front()),
        inNew_(options.against.empty() ? "in new" : "on " + options.against),
        output_(output) {}

  void print(const Row& row) {
    const bool isKnown = !hasOutcome(row, Outcome::kNotKnown);
    ++(isKnown ? differences_ : unknown_);
    if (*row[kServer] != server_) writeServer(*row[kServer]);
    const std::string entity = row[kName]->empty() ? "every " + *row[kKind] : *row[kKind] + " " + *row[kName];
    const bool isWholeEntity = row[kTable]->empty();
    if (entity != entity_)
      writeLine(2, entity + (isWholeEntity ? ": " + outcomeText(row) : ""), isKnown || !isWholeEntity,
                output_);
    entity_ = entity;
    if (!isWholeEntity) writeLine(4, differenceText(row), isKnown, output_);
  }

  void printSummary(std::int64_t skippedServers) {
    if (differences_ + unknown_ > 0) output_.write("\n");
    if (skippedServers > 0) output_.write(skippedText(options_, skippedServers) + "\n");
    output_.write(differences_ == 0 ? "no differences"
                                    : pluralize(differences_, "difference", "differences"));
    if (unknown_ > 0) output_.write(", " + std::to_string(unknown_) + " not known");
    output_.write("\n");
  }

 private:
  void writeServer(const std::string& server) {
    output_.write(server_.empty() ? "" : "\n");
    writeLine(0, server + (options_.against.empty() ? "" : " -> " + options_.against), true, output_);
    server_ = server;
    entity_.clear();
  }

  std::string outcomeText(const Row& row) const {
    return hasOutcome(row, Outcome::kNotKnown)  ? std::string(kNotKnownText)
           : hasOutcome(row, Outcome::kOnlyOld) ? "only " + inOld_
                                                : "only " + inNew_;
  }

  std::string differenceText(const Row& row) const {
    const bool isKnown = !hasOutcome(row, Outcome::kNotKnown);
    if (row[kColumn]->empty()) {
      const bool isNotCollected = !isKnown && (row[kOld] || row[kNew]);
      return fmt::format(
          "{}: {}{}", *row[kTable], outcomeText(row),
          isNotCollected ? fmt::format(", {} {}", kNotCollectedText, row[kOld] ? inOld_ : inNew_) : "");
    }
    const std::string start = fmt::format("{}, {}: ", *row[kTable], *row[kColumn]);
    if (isKnown && !hasOutcome(row, Outcome::kDifferent)) {
      return fmt::format("{}{}: {}", start, outcomeText(row),
                         valueText(hasOutcome(row, Outcome::kOnlyOld) ? row[kOld] : row[kNew]));
    }
    return fmt::format("{}{} -> {}", start, valueText(row[kOld]), valueText(row[kNew]));
  }

  const DiffOptions& options_;
  const std::string inOld_;
  const std::string inNew_;
  Output& output_;
  std::string server_;  // of the latest line
  std::string entity_;
  std::int64_t differences_ = 0;
  std::int64_t unknown_ = 0;
};

}  // namespace

void printDifferences(const DiffOptions& options, Differences& differences, Output& output) {
  const auto forEachRow = [&](const std::function<void(const Row&)>& each) {
    differences.rows.forEach(kFieldCount, each);
  };
  if (options.format == Format::kTable) {
    TextPrinter printer(options, output);
    forEachRow([&](const Row& row) { printer.print(row); });
    printer.printSummary(differences.skippedServers);
    return;
  }
  if (differences.skippedServers > 0) printError(skippedText(options, differences.skippedServers));
  const Listing listing{
      {{"Server"}, {"Object"}, {"Name"}, {"Table"}, {"Column"}, {"Old"}, {"New"}, {"Result"}}, forEachRow};
  print(listing, {.format = options.format, .forExcel = options.forExcel}, output);
}

}  // namespace host
