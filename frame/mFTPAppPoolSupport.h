// The support module: the routines that open and close the store, its log writer, and two text helpers.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom::mFTPAppPoolSupport {

// Cursor types, lock types and cursor locations of a recordset, as ADO numbers them.
constexpr std::int32_t kForwardOnly = 0;
constexpr std::int32_t kDynamic = 2;
constexpr std::int32_t kPessimistic = 2;
constexpr std::int32_t kOptimistic = 3;
constexpr std::int16_t kServerSide = 2;
constexpr std::int16_t kClientSide = 3;

// The directory of the application error log, without a closing backslash. One per thread: all objects of a
// thread share it.
extern thread_local Text mstrAppErrLogPath;

// Opens a new connection to the database file `strDBName` in `objCn`, replacing what that held. On failure: a
// record whose function name holds `strCaller`, `objCn` null, False. Guard: leave-on-failure.
VariantBool OpenConnection(ObjectRef& objCn, const Text& strDBName, TextView strCaller);

// Closes the connection if it is open, and makes `objCn` null. Nothing for a null reference. Guard:
// continue-on-failure.
void CloseConnection(ObjectRef& objCn);

// Opens a new recordset with `strSql` on `objCn` in `objRs`. On failure: a record, `objRs` null, False.
// Guard: leave-on-failure.
VariantBool OpenRecordset(ObjectRef& objRs, TextView strSql, ObjectRef& objCn, std::int32_t lngCursorType,
                          std::int32_t lngLockType, std::int16_t intCursorLocation);

// Closes the recordset if it is open, dropping a row that hinders it, and makes `objRs` null if `bRelease` is
// True. Nothing for a null reference. Guard: continue-on-failure.
void CloseRecordset(ObjectRef& objRs, VariantBool bRelease);

// An empty text for null, any other value unchanged.
Variant NullToEmpty(Variant value);

// The text between single quotes, with the quotes in it doubled.
Text QuoteForSql(TextView strText);
void AppendQuoted(Text& strTo, TextView strText);

// Writes a record to the application error log, TORVINLog.Log in `mstrAppErrLogPath`. A failure passes to the
// caller.
void WriteErrorLogEntry(std::int32_t aErrorNumber, const Text& aErrorMessage, const Text& aObjectName,
                        const Text& aFunctionName);

}  // namespace TORVINFTPAppDataCom::mFTPAppPoolSupport
