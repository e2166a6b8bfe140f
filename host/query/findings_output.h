// Writes findings as text, CSV, JSON and SARIF.
#pragma once

#include <string>

#include "host/console/output.h"
#include "host/query/findings.h"

namespace host {

enum class FindingsFormat { kTable, kCsv, kJson, kJsonl, kSarif };

// Returns a format by its name ("sarif") or by a file extension (".sarif"). Throws UsageError for another
// one.
FindingsFormat findingsFormatOf(const std::string& name);

// Writes the results, a row or an object for each. kSarif is SARIF 2.1.0 and always includes the suppressed
// findings; the others include them if `withSuppressed`.
// `forExcel`: see PrintOptions.
void writeFindings(Findings& findings, FindingsFormat format, bool withSuppressed, bool forExcel,
                   Output& output);

// Returns the evidence of a result in one line: "path = D:\Files, may_write = yes". Omits empty texts.
std::string evidenceText(const Result& result);
// Returns one value of the evidence for display: "yes", "no" or "unknown" instead of true, false or null.
std::string evidenceValue(const nlohmann::ordered_json& value);

}  // namespace host
