// The tab "General" of an FTP site: the address and port that it listens on, its limits and its state.
//
// Sources: the metabase properties ServerComment, ServerBindings, MaxConnections, ConnectionTimeout and the
// ADSI property Status of an IIsFtpServer.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
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
          SetStatusBarMessage(u"Processing " + QuoteForSql(strSiteName));

          // The last binding counts.
          const Variant aBindings = read(objObject, u"ServerBindings");
          const std::int16_t intLower = narrowToInt16(lowerBound(aBindings));
          const std::int16_t intUpper = narrowToInt16(upperBound(aBindings));
          Text strBinding;
          for (std::int32_t intIndex = intLower; intIndex <= intUpper; ++intIndex) {
            strBinding = toText(element(aBindings, intIndex));
          }
          const std::vector<Text> aPieces = Split(strBinding, u':');
          Text strIP = PieceOf(aPieces, 0);
          const Text strPort = PieceOf(aPieces, 1);
          if (strIP.empty()) strIP = u"(All Unassigned)";

          const Text strMaxConnections = toText(read(objObject, u"Maxconnections"));
          const Text strTimeout = toText(read(objObject, u"connectiontimeout"));
          const Text strState = StateWord(toText(read(objObject, u"Status")));

          call(objRs, u"AddNew");
          WriteColumn(objRs, u"Server name", NullToEmpty(Trim(strServerName)));
          WriteColumn(objRs, u"FTP site name", NullToEmpty(Trim(strSiteName)));
          WriteColumn(objRs, u"Identifier", NullToEmpty(Trim(strId)));
          WriteColumn(objRs, u"IP Address", NullToEmpty(Trim(strIP)));
          WriteColumn(objRs, u"TCP Port", NullToEmpty(Trim(strPort)));
          WriteColumn(objRs, u"Maximum Connections", NullToEmpty(Trim(strMaxConnections)));
          WriteColumn(objRs, u"Connection Timeout (seconds)", NullToEmpty(Trim(strTimeout)));
          WriteColumn(objRs, u"State", NullToEmpty(Trim(strState)));
          call(objRs, u"Update");
          bResult = True;
        }
        write(Screen(), u"MousePointer", kPointerDefault);
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetServerGeneralProperty");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
