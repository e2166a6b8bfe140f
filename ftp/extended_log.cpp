// The tab "Extended Log Properties" of an FTP site: the fields of an extended log.
//
// Sources: the metabase properties LogPluginClsid and LogExtFileFlags, whose flags are Boolean properties.
// IIS 6 introduced the host field.

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
        const Text strId = toText(read(objObject, u"Name"sv));
        if (IsInfoNode(strId)) return;

        call(objRs, u"AddNew"sv);
        const Text strSiteName = ReadSiteName(objObject);
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, strSiteName));
        WriteSiteIdentity(objRs, strServerName, strSiteName, strId);

        if (IsExtendedFormat(toText(read(objObject, u"logpluginclsid"sv)))) {
          const auto flagWord = [&](TextView strMember) {
            return GetPropEnabledStatus(toInt16(read(objObject, strMember)));
          };
          WriteText(objRs, u"Date"sv, flagWord(u"logextfileDate"sv));
          WriteText(objRs, u"Time"sv, flagWord(u"logextfiletime"sv));
          WriteText(objRs, u"Client IP Address"sv, flagWord(u"logextfileclientip"sv));
          WriteText(objRs, u"User Name"sv, flagWord(u"logextfileusername"sv));
          WriteText(objRs, u"Service Name"sv, flagWord(u"logextfilesitename"sv));
          WriteText(objRs, u"Computer Name"sv, flagWord(u"logextfilecomputername"sv));
          WriteText(objRs, u"Server IP Address"sv, flagWord(u"logextfileserverip"sv));
          WriteText(objRs, u"Server Port"sv, flagWord(u"logextfileserverport"sv));
          WriteText(objRs, u"Method"sv, flagWord(u"logextfilemethod"sv));
          WriteText(objRs, u"URI Stem"sv, flagWord(u"logextfileuristem"sv));
          WriteText(objRs, u"URI Query"sv, flagWord(u"logextfileuriquery"sv));
          WriteText(objRs, u"Protocol Status"sv, flagWord(u"logextfilehttpstatus"sv));
          WriteText(objRs, u"Win32 Status"sv, flagWord(u"logextfilewin32status"sv));
          WriteText(objRs, u"Bytes Sent"sv, flagWord(u"logextfilebytessent"sv));
          WriteText(objRs, u"Bytes Received"sv, flagWord(u"logextfilebytesrecv"sv));
          WriteText(objRs, u"Time Taken"sv, flagWord(u"logextfiletimetaken"sv));
          WriteText(objRs, u"Protocol Version"sv, flagWord(u"logextfileprotocolversion"sv));
          WriteText(objRs, u"Host"sv, intOs >= 6 ? flagWord(u"logextfilehost"sv) : Text());
          WriteText(objRs, u"User Agent"sv, flagWord(u"logextfileuseragent"sv));
          WriteText(objRs, u"Cookie"sv, flagWord(u"logextfilecookie"sv));
          WriteText(objRs, u"Referer"sv, flagWord(u"logextfilereferer"sv));
        }
        call(objRs, u"Update"sv);
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetExtendedLogProperties");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
