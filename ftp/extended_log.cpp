// The tab "Extended Log Properties" of an FTP site: which fields an extended log records.
//
// Sources: the metabase properties LogPluginClsid and LogExtFileFlags, each flag of which is a Boolean
// property of its own. The host field came with IIS 6.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "ftp/FTPCollection.h"
#include "ftp/log_format.h"
#include "ftp/server_version.h"
#include "ftp/site_identity.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

VariantBool FTPCollection::GetExtendedLogProperties(const Text& strServerName, ObjectRef& objObject,
                                                    ObjectRef&, ObjectRef& objRs) {
  VariantBool bResult = False;
  LeaveOnFailure(
      [&] {
        ClearError();
        const std::int16_t intOs = ReadServerVersion(strServerName, mstrErrorLogPath);
        const Text strId = toText(read(objObject, u"Name"));
        if (IsInfoNode(strId)) return;

        call(objRs, u"AddNew");
        const Text strSiteName = ReadSiteName(objObject);
        SetStatusBarMessage(u"Processing " + QuoteForSql(strSiteName));
        WriteColumn(objRs, u"Server name", NullToEmpty(Trim(strServerName)));
        WriteColumn(objRs, u"FTP site name", NullToEmpty(Trim(strSiteName)));
        WriteColumn(objRs, u"Identifier", NullToEmpty(Trim(strId)));

        const Text strGroup = LogClassGroup(toText(read(objObject, u"logpluginclsid")));
        if (equalsIgnoringCase(strGroup, u"ff160663")) {
          const auto flagWord = [&](TextView strMember) {
            return NullToEmpty(Trim(GetPropEnabledStatus(toInt16(read(objObject, strMember)))));
          };
          WriteColumn(objRs, u"Date", flagWord(u"logextfileDate"));
          WriteColumn(objRs, u"Time", flagWord(u"logextfiletime"));
          WriteColumn(objRs, u"Client IP Address", flagWord(u"logextfileclientip"));
          WriteColumn(objRs, u"User Name", flagWord(u"logextfileusername"));
          WriteColumn(objRs, u"Service Name", flagWord(u"logextfilesitename"));
          WriteColumn(objRs, u"Computer Name", flagWord(u"logextfilecomputername"));
          WriteColumn(objRs, u"Server IP Address", flagWord(u"logextfileserverip"));
          WriteColumn(objRs, u"Server Port", flagWord(u"logextfileserverport"));
          WriteColumn(objRs, u"Method", flagWord(u"logextfilemethod"));
          WriteColumn(objRs, u"URI Stem", flagWord(u"logextfileuristem"));
          WriteColumn(objRs, u"URI Query", flagWord(u"logextfileuriquery"));
          WriteColumn(objRs, u"Protocol Status", flagWord(u"logextfilehttpstatus"));
          WriteColumn(objRs, u"Win32 Status", flagWord(u"logextfilewin32status"));
          WriteColumn(objRs, u"Bytes Sent", flagWord(u"logextfilebytessent"));
          WriteColumn(objRs, u"Bytes Received", flagWord(u"logextfilebytesrecv"));
          WriteColumn(objRs, u"Time Taken", flagWord(u"logextfiletimetaken"));
          WriteColumn(objRs, u"Protocol Version", flagWord(u"logextfileprotocolversion"));
          WriteColumn(objRs, u"Host", intOs >= 6 ? flagWord(u"logextfilehost") : Variant(u""));
          WriteColumn(objRs, u"User Agent", flagWord(u"logextfileuseragent"));
          WriteColumn(objRs, u"Cookie", flagWord(u"logextfilecookie"));
          WriteColumn(objRs, u"Referer", flagWord(u"logextfilereferer"));
        }
        call(objRs, u"Update");
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetExtendedLogProperties");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
