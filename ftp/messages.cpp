// The tab "Message" of an FTP site: the messages sent to its users.
//
// Sources: the metabase properties GreetingMessage, ExitMessage, BannerMessage and MaxClientsMessage. IIS 6
// introduced the banner.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "ftp/FTPCollection.h"
#include "ftp/server_version.h"
#include "ftp/site_identity.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

namespace {

// Stays: the lines are joined without a separator.
Text JoinLines(const Variant& aLines) {
  const std::int16_t intLower = narrowToInt16(lowerBound(aLines));
  const std::int16_t intUpper = narrowToInt16(upperBound(aLines));
  Text strJoined;
  for (std::int32_t intIndex = intLower; intIndex <= intUpper; ++intIndex) {
    strJoined += toText(element(aLines, intIndex));
  }
  return strJoined;
}

}  // namespace

VariantBool FTPCollection::GetMessageSettings(const Text& strServerName, ObjectRef& objObject,
                                              ObjectRef& objCn, ObjectRef& objRs) {
  VariantBool bResult = False;
  LeaveOnFailure(
      [&] {
        ClearError();
        const std::int16_t intOs = ReadServerVersion(strServerName, mstrErrorLogPath);
        const Text strId = toText(read(objObject, u"Name"sv));
        if (IsInfoNode(strId)) return;
        const Text strSiteName = ReadSiteName(objObject);
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, strSiteName));

        const Text strWelcome = JoinLines(read(objObject, u"GreetingMessage"sv));
        const Text strExit = toText(read(objObject, u"Exitmessage"sv));
        Text strBanner;
        if (intOs >= 6) strBanner = JoinLines(read(objObject, u"bannerMessage"sv));
        const Text strMaxClients = toText(read(objObject, u"MaxClientsMessage"sv));

        call(objRs, u"AddNew"sv);
        WriteSiteIdentity(objRs, strServerName, strSiteName, strId);
        WriteText(objRs, u"Welcome Message"sv, strWelcome);
        WriteText(objRs, u"Exit Message"sv, strExit);
        WriteText(objRs, u"Banner Message"sv, strBanner);
        WriteText(objRs, u"Maximum connections message"sv, strMaxClients);
        call(objRs, u"Update"sv);
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetMessageSettings");
        // Stays: these are the caller's recordset and connection, which are missing for all later sites.
        // There this read of the state fails and leaves the routine.
        if (toInt32(read(objRs, u"State"sv)) == 1) CloseRecordset(objRs, True);
        if (toInt32(read(objCn, u"State"sv)) == 1) CloseConnection(objCn);
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
