// The tab "Log File Settings" of an FTP site: whether it logs, the log format, and the settings of that
// format.
//
// Sources: the metabase properties LogType, LogPluginClsid, LogFilePeriod, LogFileTruncateSize,
// LogFileLocaltimeRollover, LogFileDirectory, LogOdbcDataSource, LogOdbcUserName and LogOdbcTableName.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "ftp/FTPCollection.h"
#include "ftp/log_format.h"
#include "ftp/site_identity.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

namespace {

// LogFilePeriod, for logs without a size limit: the display text, and the name of the log file by format.
struct Period {
  TextView strPeriod;
  TextView strWords;
  TextView strExtendedFile;
  TextView strInternetServiceFile;
};
constexpr Period aPeriods[] = {
    {u"0", u"", u"\\extend#.log", u"\\inetsv#.log"},
    {u"1", u"Daily", u"\\exyymmdd.log", u"\\inyymmdd.log"},
    {u"2", u"Weekly", u"\\exyymmww.log", u"\\inyymmww.log"},
    {u"3", u"Monthly", u"\\exyymm.log", u"\\inyymm.log"},
    {u"4", u"Hourly", u"\\exyymmddhh.log", u"\\inyymmddhh.log"},
};

// LogFileTruncateSize, in bytes; -1 is no limit. Stays: rounded to kilobytes first, then to megabytes.
Text SizeText(std::int32_t lngTruncateSize) {
  if (lngTruncateSize == -1) return u"Unlimited Filesize";
  const std::int32_t lngKilobytes = roundToInt32(lngTruncateSize / 1024.0);
  const std::int32_t lngMegabytes = roundToInt32(lngKilobytes / 1024.0);
  return u"When File Size Reaches: " + decimalText(lngMegabytes) + u" MB";
}

}  // namespace

VariantBool FTPCollection::GetLogFileSetting(const Text& strServerName, ObjectRef& objObject, ObjectRef&,
                                             ObjectRef& objRs) {
  VariantBool bResult = False;
  LeaveOnFailure(
      [&] {
        ClearError();
        const Text strId = toText(read(objObject, u"Name"sv));
        if (IsInfoNode(strId)) return;
        const Text strSiteName = ReadSiteName(objObject);
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, strSiteName));

        const TextView strEnabled = toInt16(read(objObject, u"logtype"sv)) == 1 ? u"Yes"sv : u"No"sv;
        const TextView strFormat = LogFormatText(toText(read(objObject, u"logpluginclsid"sv)));

        call(objRs, u"AddNew"sv);
        WriteSiteIdentity(objRs, strServerName, strSiteName, strId);
        WriteText(objRs, u"Enable Logging"sv, strEnabled);
        WriteText(objRs, u"Active log format"sv, strFormat);

        if (strFormat == kOdbcFormat) {
          const Text strDataSource = toText(read(objObject, u"logOdbcDataSource"sv));
          WriteText(objRs, u"ODBC Data Source Name (DSN)"sv, strDataSource);
          const Text strUserName = toText(read(objObject, u"logOdbcusername"sv));
          WriteText(objRs, u"ODBC User name"sv, strUserName);
          const Text strTableName = toText(read(objObject, u"logOdbctablename"sv));
          WriteText(objRs, u"ODBC Table name"sv, strTableName);
        } else {
          const bool bExtended = strFormat == kExtendedFormat;
          const Text strPeriod = toText(read(objObject, u"logfileperiod"sv));
          Text strPeriodText;
          Text strFileName;
          if (strPeriod == u"0") strPeriodText = SizeText(toInt32(read(objObject, u"logfiletruncatesize"sv)));
          for (const Period& period : aPeriods) {
            if (strPeriod != period.strPeriod) continue;
            if (strPeriod != u"0") strPeriodText = period.strWords;
            strFileName = concat(
                {u"MSFTPSVC"sv, strId, bExtended ? period.strExtendedFile : period.strInternetServiceFile});
          }
          TextView strLocalTime;
          if (bExtended) {
            strLocalTime = toInt32(read(objObject, u"logfilelocaltimerollover"sv)) != 0 ? u"Yes"sv : u"No"sv;
          }
          const Text strDirectory = toText(read(objObject, u"logfiledirectory"sv));

          WriteText(objRs, u"New Log Time Period"sv, strPeriodText);
          if (bExtended) {
            WriteText(objRs, u"Use local time for file naming and rollover"sv, strLocalTime);
          }
          WriteText(objRs, u"Log file directory"sv, strDirectory);
          WriteText(objRs, u"Log file name"sv, strFileName);
        }
        call(objRs, u"Update"sv);
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetLogFileSetting");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
