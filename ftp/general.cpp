// The tab "General" of an FTP site: the address and port that it listens on, its limits and its state.
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
        const Text strId = toText(read(objObject, u"Name"));
        if (!IsInfoNode(strId)) {
          const Text strSiteName = ReadSiteName(objObject);
          SetStatusBarMessage(progress::StatusText(u"Processing", strSiteName));

          // The last binding counts.
          const Variant aBindings = read(objObject, u"ServerBindings");
          const std::int16_t intLower = narrowToInt16(lowerBound(aBindings));
          const std::int16_t intUpper = narrowToInt16(upperBound(aBindings));
          Text strBinding;
          for (std::int32_t intIndex = intLower; intIndex <= intUpper; ++intIndex) {
            strBinding = toText(element(aBindings, intIndex));
          }
          TextView strIP = PieceOf(strBinding, u':', 0);
          const TextView strPort = PieceOf(strBinding, u':', 1);
          if (strIP.empty()) strIP = u"(All Unassigned)";

          const Text strMaxConnections = toText(read(objObject, u"Maxconnections"));
          const Text strTimeout = toText(read(objObject, u"connectiontimeout"));
          const Text strState = StateWord(toText(read(objObject, u"Status")));

          call(objRs, u"AddNew");
          WriteSiteIdentity(objRs, strServerName, strSiteName, strId);
          WriteText(objRs, u"IP Address", strIP);
          WriteText(objRs, u"TCP Port", strPort);
          WriteText(objRs, u"Maximum Connections", strMaxConnections);
          WriteText(objRs, u"Connection Timeout (seconds)", strTimeout);
          WriteText(objRs, u"State", strState);
          call(objRs, u"Update");
          bResult = True;
        }
        progress::ShowDefaultPointer();
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetServerGeneralProperty");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
