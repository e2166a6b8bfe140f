#include "frame/mFTPAppPoolSupport.h"

#include "frame/guards.h"
#include "frame/log_record.h"

namespace TORVINFTPAppDataCom::mFTPAppPoolSupport {
namespace {

const Text kObjectName = u"TORVINFTPAppDataCom-mFTPAppPoolSupport";
const Variant vProvider = u"Microsoft.Jet.OLEDB.4.0";

// Values of State.
constexpr std::int32_t kClosed = 0;
constexpr std::int32_t kOpen = 1;

}  // namespace

thread_local Text mstrAppErrLogPath;

VariantBool OpenConnection(ObjectRef& objCn, const Text& strDBName, TextView strCaller) {
  VariantBool bResult = False;
  LeaveOnFailure(
      [&] {
        objCn = CreateObject(u"ADODB.Connection"sv);
        write(objCn, u"Provider"sv, vProvider);
        call(objCn, u"Open"sv, strDBName);
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteErrorLogEntry(objErr.number, objErr.description, kObjectName,
                           concat({u"OpenConnection("sv, strCaller, u")"sv}));
        bResult = False;
        if (objCn != nullptr) {
          if (toInt32(read(objCn, u"State"sv)) != kClosed) call(objCn, u"Close"sv);
          objCn = nullptr;
        }
      });
  return bResult;
}

void CloseConnection(ObjectRef& objCn) {
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteErrorLogEntry(objErr.number, objErr.description, kObjectName, u"CloseConnection");
  });
  if (objCn == nullptr) return;
  if (guard.test([&] { return toInt32(read(objCn, u"State"sv)) == kOpen; })) {
    guard.step([&] { call(objCn, u"Close"sv); });
  }
  objCn = nullptr;
}

VariantBool OpenRecordset(ObjectRef& objRs, TextView strSql, ObjectRef& objCn, std::int32_t lngCursorType,
                          std::int32_t lngLockType, std::int16_t intCursorLocation) {
  VariantBool bResult = False;
  LeaveOnFailure(
      [&] {
        objRs = CreateObject(u"ADODB.Recordset"sv);
        write(objRs, u"CursorLocation"sv, intCursorLocation);
        write(objRs, u"LockType"sv, lngLockType);
        write(objRs, u"CursorType"sv, lngCursorType);
        write(objRs, u"ActiveConnection"sv, objCn);
        call(objRs, u"Open"sv, strSql);
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteErrorLogEntry(objErr.number, objErr.description, kObjectName, u"OpenRecordset");
        bResult = False;
        if (objRs != nullptr) {
          if (toInt32(read(objRs, u"State"sv)) != kClosed) call(objRs, u"Close"sv);
          objRs = nullptr;
        }
      });
  return bResult;
}

void CloseRecordset(ObjectRef& objRs, VariantBool bRelease) {
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteErrorLogEntry(objErr.number, objErr.description, kObjectName, u"CloseRecordset");
  });
  if (objRs == nullptr) return;
  if (guard.test([&] { return toInt32(read(objRs, u"State"sv)) == kOpen; })) {
    // Stays: a row that a collector left pending makes Close fail, and is discarded.
    if (!guard.step([&] { call(objRs, u"Close"sv); })) {
      guard.step([&] { call(objRs, u"CancelUpdate"sv); });
    }
  }
  if (bRelease != False) objRs = nullptr;
}

Variant NullToEmpty(Variant value) {
  if (value.isNull()) return Text();
  return value;
}

Text QuoteForSql(TextView strText) {
  Text strQuoted;
  strQuoted.reserve(strText.size() + 2);
  AppendQuoted(strQuoted, strText);
  return strQuoted;
}

void AppendQuoted(Text& strTo, TextView strText) {
  strTo += u'\'';
  for (std::size_t lngQuote; (lngQuote = strText.find(u'\'')) != TextView::npos;) {
    strTo.append(strText.substr(0, lngQuote + 1)) += u'\'';
    strText.remove_prefix(lngQuote + 1);
  }
  strTo.append(strText) += u'\'';
}

void WriteErrorLogEntry(std::int32_t aErrorNumber, const Text& aErrorMessage, const Text& aObjectName,
                        const Text& aFunctionName) {
  AppendLogRecord(mstrAppErrLogPath + u"\\TORVINLog.Log", aErrorNumber, aErrorMessage, aObjectName,
                  aFunctionName);
}

}  // namespace TORVINFTPAppDataCom::mFTPAppPoolSupport
