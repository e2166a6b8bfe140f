// The tab "Home Directory" of an FTP site: where its content lies, what it allows and how it lists
// directories.
//
// Sources: the metabase properties Path, AccessFlags (AccessRead and AccessWrite) and DontLog of the site's
// root directory, and MSDOSDirOutput of the site.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
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
        SetStatusBarMessage(u"Processing " + QuoteForSql(strSiteName));

        call(objRs, u"AddNew");
        WriteColumn(objRs, u"Server name", NullToEmpty(Trim(strServerName)));
        WriteColumn(objRs, u"FTP site name", NullToEmpty(Trim(strSiteName)));
        WriteColumn(objRs, u"Identifier", NullToEmpty(Trim(strId)));

        const ObjectRef objSite = GetObject(u"IIS://" + strServerName + u"/MSFTPSVC/" + strId);
        if (objSite != nullptr) {
          // Each child overwrites what the one before wrote: the last one counts.
          const auto walk = automation::children(objSite);
          while (const ObjectRef objDirectory = walk->next()) {
            const Text strPath = toText(read(objDirectory, u"Path"));
            const Text strRead = GetPropEnabledStatus(toInt16(read(objDirectory, u"accessread")));
            const Text strWrite = GetPropEnabledStatus(toInt16(read(objDirectory, u"accesswrite")));
            const Text strLogVisits = LogVisitsWord(toInt32(read(objDirectory, u"dontlog")));
            WriteColumn(objRs, u"Content source", NullToEmpty(Trim(ContentSourceText(strPath))));
            WriteColumn(objRs, u"Path", NullToEmpty(Trim(strPath)));
            WriteColumn(objRs, u"Read", NullToEmpty(Trim(strRead)));
            WriteColumn(objRs, u"Write", NullToEmpty(Trim(strWrite)));
            WriteColumn(objRs, u"Log visits", NullToEmpty(Trim(strLogVisits)));
          }
        }
        const Text strListing = toInt32(read(objObject, u"msdosdiroutput")) == 0 ? u"UNIX" : u"MS-DOS";
        WriteColumn(objRs, u"Directory Listing Style", NullToEmpty(Trim(strListing)));
        call(objRs, u"Update");
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetHomeDirectoryProperties");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
