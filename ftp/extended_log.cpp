// The tab "Extended Log Properties" of an FTP site: which fields an extended log records.
//
// Sources: the metabase properties LogPluginClsid and LogExtFileFlags, each flag of which is a Boolean
// property of its own. The host field came with IIS 6.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
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
        SetStatusBarMessage(progress::StatusText(u"Processing", strSiteName));
        WriteSiteIdentity(objRs, strServerName, strSiteName, strId);

        if (IsExtendedFormat(toText(read(objObject, u"logpluginclsid")))) {
          const auto flagWord = [&](TextView strMember) {
            return GetPropEnabledStatus(toInt16(read(objObject, strMember)));
          };
          WriteText(objRs, u"Date", flagWord(u"logextfileDate"));
          WriteText(objRs, u"Time", flagWord(u"logextfiletime"));
          WriteText(objRs, u"Client IP Address", flagWord(u"logextfileclientip"));
          WriteText(objRs, u"User Name", flagWord(u"logextfileusername"));
          WriteText(objRs, u"Service Name", flagWord(u"logextfilesitename"));
          WriteText(objRs, u"Computer Name", flagWord(u"logextfilecomputername"));
          WriteText(objRs, u"Server IP Address", flagWord(u"logextfileserverip"));
          WriteText(objRs, u"Server Port", flagWord(u"logextfileserverport"));
          WriteText(objRs, u"Method", flagWord(u"logextfilemethod"));
          WriteText(objRs, u"URI Stem", flagWord(u"logextfileuristem"));
          WriteText(objRs, u"URI Query", flagWord(u"logextfileuriquery"));
          WriteText(objRs, u"Protocol Status", flagWord(u"logextfilehttpstatus"));
          WriteText(objRs, u"Win32 Status", flagWord(u"logextfilewin32status"));
          WriteText(objRs, u"Bytes Sent", flagWord(u"logextfilebytessent"));
          WriteText(objRs, u"Bytes Received", flagWord(u"logextfilebytesrecv"));
          WriteText(objRs, u"Time Taken", flagWord(u"logextfiletimetaken"));
          WriteText(objRs, u"Protocol Version", flagWord(u"logextfileprotocolversion"));
          WriteText(objRs, u"Host", intOs >= 6 ? flagWord(u"logextfilehost") : Text());
          WriteText(objRs, u"User Agent", flagWord(u"logextfileuseragent"));
          WriteText(objRs, u"Cookie", flagWord(u"logextfilecookie"));
          WriteText(objRs, u"Referer", flagWord(u"logextfilereferer"));
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
