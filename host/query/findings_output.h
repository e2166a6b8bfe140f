// Findings as text for people and for programs.
#pragma once

#include <string>

#include "host/console/output.h"
#include "host/query/findings.h"

namespace host {

enum class FindingsFormat { kTable, kCsv, kJson, kJsonl, kSarif };

// A format by its name ("sarif") or by a file's extension (".sarif"). Throws UsageError for another one.
FindingsFormat findingsFormatOf(const std::string& name);

// Writes the results, a row or an object for each. kSarif is SARIF 2.1.0 and always has the suppressed
// findings; the others have them where `withSuppressed`.
// `isTerminal`: the table may go to a terminal, whose width and colours it then takes.
void writeFindings(Findings& findings, FindingsFormat format, bool withSuppressed, Output& output,
                   bool isTerminal);

// The evidence of a result in one line: "path = D:\Files, may_write = yes". Empty texts are left out.
std::string evidenceText(const Result& result);
// A value of it as people read it.
std::string evidenceValue(const nlohmann::ordered_json& value);

}  // namespace host
