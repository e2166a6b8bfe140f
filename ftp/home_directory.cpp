// The tab "Home Directory" of an FTP site: where its content lies, what it allows and how it lists
// directories.
//
// Sources: the metabase properties Path, AccessFlags (AccessRead and AccessWrite) and DontLog of the site's
// root directory, and MSDOSDirOutput of the site.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "ftp/FTPCollection.h"
#include "ftp/content_source.h"
#include "ftp/site_identity.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

VariantBool FTPCollection::GetHomeDirectoryProperties(const Text& strServerName, ObjectRef& objObject,
                                                      ObjectRef&, ObjectRef& objRs) {
  VariantBool bResult = False;
  LeaveOnFailure(
      [&] {
        ClearError();
        const Text strId = toText(read(objObject, u"Name"));
        if (IsInfoNode(strId)) return;
        const Text strSiteName = ReadSiteName(objObject);
        SetStatusBarMessage(progress::StatusText(u"Processing", strSiteName));

        call(objRs, u"AddNew");
        WriteSiteIdentity(objRs, strServerName, strSiteName, strId);

        const ObjectRef objSite = GetObject(u"IIS://" + strServerName + u"/MSFTPSVC/" + strId);
        if (objSite != nullptr) {
          // Each child overwrites what the one before wrote: the last one counts.
          const auto walk = automation::children(objSite);
          while (const ObjectRef objDirectory = walk->next()) {
            const Text strPath = toText(read(objDirectory, u"Path"));
            const Text strRead = GetPropEnabledStatus(toInt16(read(objDirectory, u"accessread")));
            const Text strWrite = GetPropEnabledStatus(toInt16(read(objDirectory, u"accesswrite")));
            const TextView strLogVisits = LogVisitsWord(toInt32(read(objDirectory, u"dontlog")));
            WriteText(objRs, u"Content source", ContentSourceText(strPath));
            WriteText(objRs, u"Path", strPath);
            WriteText(objRs, u"Read", strRead);
            WriteText(objRs, u"Write", strWrite);
            WriteText(objRs, u"Log visits", strLogVisits);
          }
        }
        const TextView strListing = toInt32(read(objObject, u"msdosdiroutput")) == 0 ? u"UNIX" : u"MS-DOS";
        WriteText(objRs, u"Directory Listing Style", strListing);
        call(objRs, u"Update");
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetHomeDirectoryProperties");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
