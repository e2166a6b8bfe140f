// The record format of all logs of the component.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Appends one record to the file at `strPath`, with a separate open, write and close. The record is a line in
// the system's encoding with five fields, separated by TAB and ended by CR LF:
//
//   local date and time, MM/dd/yyyy HH:mm:ss
//   `aObjectName`, padded with spaces to 40 characters, never truncated
//   `aFunctionName`, likewise
//   `aErrorNumber` in upper-case hexadecimal, right-aligned in 10 characters
//   `aErrorMessage` unchanged
//
// Creates the file if it is missing, but not its directory. Backslashes in the path are directory separators
// on every system. Throws Failure if the file cannot be opened, written or closed.
void AppendLogRecord(const Text& strPath, std::int32_t aErrorNumber, const Text& aErrorMessage,
                     const Text& aObjectName, const Text& aFunctionName);

}  // namespace TORVINFTPAppDataCom
