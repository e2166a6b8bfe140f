// The record that all log writers of the component write.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Appends one record to the file at `strPath`, with an open, a write and a close of its own. The record is a
// line in the system's encoding with five fields, a TAB between them, CR LF at the end:
//
//   local date and time, MM/dd/yyyy HH:mm:ss
//   `aObjectName`, padded with spaces to 40 characters, never truncated
//   `aFunctionName`, likewise
//   `aErrorNumber` in upper-case hexadecimal, right-aligned in 10 characters
//   `aErrorMessage` as it is
//
// A file that isn't there is created, a directory isn't. Backslashes in the path separate directories on
// every machine. Throws Failure where the file can't be opened, written or closed.
void AppendLogRecord(const Text& strPath, std::int32_t aErrorNumber, const Text& aErrorMessage,
                     const Text& aObjectName, const Text& aFunctionName);

}  // namespace TORVINFTPAppDataCom
