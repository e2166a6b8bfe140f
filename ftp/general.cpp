// The tab "General" of an FTP site: address, port, limits and state.
//
// Sources: the metabase properties ServerComment, ServerBindings, MaxConnections, ConnectionTimeout and the
// ADSI property Status of an IIsFtpServer.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/state_word.h"
#include "ftp/FTPCollection.h"
#include "ftp/site_identity.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

VariantBool FTPCollection::GetServerGeneralProperty(const Text& strServerName, ObjectRef& objObject,
                                                    ObjectRef&, ObjectRef& objRs) {
  VariantBool bResult = False;
  LeaveOnFailure(
      [&] {
        ClearError();
        const Text strId = toText(read(objObject, u"Name"sv));
        if (!IsInfoNode(strId)) {
          const Text strSiteName = ReadSiteName(objObject);
          SetStatusBarMessage(progress::StatusText(u"Processing"sv, strSiteName));

          // Stays: the last binding counts.
          const Variant aBindings = read(objObject, u"ServerBindings"sv);
          const std::int16_t intLower = narrowToInt16(lowerBound(aBindings));
          const std::int16_t intUpper = narrowToInt16(upperBound(aBindings));
          Text strBinding;
          for (std::int32_t intIndex = intLower; intIndex <= intUpper; ++intIndex) {
            strBinding = toText(element(aBindings, intIndex));
          }
          TextView strIP = PieceOf(strBinding, u':', 0);
          const TextView strPort = PieceOf(strBinding, u':', 1);
          if (strIP.empty()) strIP = u"(All Unassigned)";

          const Text strMaxConnections = toText(read(objObject, u"Maxconnections"sv));
          const Text strTimeout = toText(read(objObject, u"connectiontimeout"sv));
          const Text strState = StateWord(toText(read(objObject, u"Status"sv)));

          call(objRs, u"AddNew"sv);
          WriteSiteIdentity(objRs, strServerName, strSiteName, strId);
          WriteText(objRs, u"IP Address"sv, strIP);
          WriteText(objRs, u"TCP Port"sv, strPort);
          WriteText(objRs, u"Maximum Connections"sv, strMaxConnections);
          WriteText(objRs, u"Connection Timeout (seconds)"sv, strTimeout);
          WriteText(objRs, u"State"sv, strState);
          call(objRs, u"Update"sv);
          bResult = True;
        }
        // Stays: resets the pointer at each site, also during an enumeration, and at Info.
        progress::ShowDefaultPointer();
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetServerGeneralProperty");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
