// The tab "Home Directory" of an FTP site: content location, permissions and directory listing style.
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
        const Text strId = toText(read(objObject, u"Name"sv));
        if (IsInfoNode(strId)) return;
        const Text strSiteName = ReadSiteName(objObject);
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, strSiteName));

        call(objRs, u"AddNew"sv);
        WriteSiteIdentity(objRs, strServerName, strSiteName, strId);

        // Stays: reads the site again, as a second object.
        const ObjectRef objSite = GetObject(concat({u"IIS://"sv, strServerName, u"/MSFTPSVC/"sv, strId}));
        if (objSite != nullptr) {
          // Stays: each child overwrites the values of the previous one, so the last one counts.
          const auto walk = automation::children(objSite);
          while (const ObjectRef objDirectory = walk->next()) {
            const Text strPath = toText(read(objDirectory, u"Path"sv));
            const Text strRead = GetPropEnabledStatus(toInt16(read(objDirectory, u"accessread"sv)));
            const Text strWrite = GetPropEnabledStatus(toInt16(read(objDirectory, u"accesswrite"sv)));
            const TextView strLogVisits = LogVisitsWord(toInt32(read(objDirectory, u"dontlog"sv)));
            WriteText(objRs, u"Content source"sv, ContentSourceText(strPath));
            WriteText(objRs, u"Path"sv, strPath);
            WriteText(objRs, u"Read"sv, strRead);
            WriteText(objRs, u"Write"sv, strWrite);
            WriteText(objRs, u"Log visits"sv, strLogVisits);
          }
        }
        const TextView strListing =
            toInt32(read(objObject, u"msdosdiroutput"sv)) == 0 ? u"UNIX"sv : u"MS-DOS"sv;
        WriteText(objRs, u"Directory Listing Style"sv, strListing);
        call(objRs, u"Update"sv);
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetHomeDirectoryProperties");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
