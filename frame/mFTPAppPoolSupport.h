// The support module: routines that open and close the database, its log writer, two text helpers.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom::mFTPAppPoolSupport {

// ADO values of cursor types, lock types and cursor locations.
constexpr std::int32_t kForwardOnly = 0;
constexpr std::int32_t kDynamic = 2;
constexpr std::int32_t kPessimistic = 2;
constexpr std::int32_t kOptimistic = 3;
constexpr std::int16_t kServerSide = 2;
constexpr std::int16_t kClientSide = 3;

// The directory of the application error log, without a trailing backslash. All objects of a thread share it.
extern thread_local Text mstrAppErrLogPath;

// Opens a new connection to the database file `strDBName` and stores it in `objCn`, replacing the previous
// value. On failure: writes a record whose function name contains `strCaller`, sets `objCn` to null, returns
// False. Guard: leave-on-failure.
VariantBool OpenConnection(ObjectRef& objCn, const Text& strDBName, TextView strCaller);

// Closes the connection if it is open and sets `objCn` to null. Does nothing for a null reference. Guard:
// continue-on-failure.
void CloseConnection(ObjectRef& objCn);

// Opens a new recordset with `strSql` on `objCn` and stores it in `objRs`. On failure: writes a record, sets
// `objRs` to null, returns False. Guard: leave-on-failure.
VariantBool OpenRecordset(ObjectRef& objRs, TextView strSql, ObjectRef& objCn, std::int32_t lngCursorType,
                          std::int32_t lngLockType, std::int16_t intCursorLocation);

// Closes the recordset if it is open, discarding a pending row that prevents this, and sets `objRs` to null
// if `bRelease` is True. Does nothing for a null reference. Guard: continue-on-failure.
void CloseRecordset(ObjectRef& objRs, VariantBool bRelease);

// Returns an empty text for null, any other value unchanged.
Variant NullToEmpty(Variant value);

// Returns the text in single quotes, with embedded quotes doubled.
Text QuoteForSql(TextView strText);
void AppendQuoted(Text& strTo, TextView strText);

// Writes a record to the application error log, TORVINLog.Log in `mstrAppErrLogPath`. A failure propagates to
// the caller.
void WriteErrorLogEntry(std::int32_t aErrorNumber, const Text& aErrorMessage, const Text& aObjectName,
                        const Text& aFunctionName);

}  // namespace TORVINFTPAppDataCom::mFTPAppPoolSupport
