// The tree of virtual directories of a site, one level per call.
//
// Sources: Name, ADsPath and the metabase properties Path, AccessFlags (AccessRead and AccessWrite) and
// DontLog of each child.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"
#include "ftp/FTPCollection.h"
#include "ftp/content_source.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void FTPCollection::GetRootVirtualDirectory(const Text& strServerName, const Text& strId,
                                            const Text& strFullPath, const Text& strDBName) {
  ListVirtualDirectories(concat({u"IIS://"sv, strServerName, u"/MSFTPSVC/"sv, strId, u"/root"sv}),
                         strFullPath, strId, strDBName, u"Root Virtual Directory",
                         u"GetRootVirtualDirectory");
}

void FTPCollection::GetChildVirtualDirectories(Text&, Text& strId, Text& strPath, Text& strDBName) {
  ListVirtualDirectories(strPath, strPath, strId, strDBName, u"Child Virtual Directory",
                         u"GetChildVirtualDirectories");
}

void FTPCollection::ListVirtualDirectories(const Text& strObjectPath, const Text& strParentPath,
                                           const Text& strId, const Text& strDBName, TextView strCaller,
                                           TextView strFunctionName) {
  ObjectRef objParent;
  ObjectRef objCn;
  ObjectRef objRs;
  std::int16_t intTotal = 0;
  std::int16_t intDone = 0;
  Text strName;
  Text strPath;
  Text strRead;
  Text strWrite;
  std::int16_t intDontLog = 0;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", Text(strFunctionName));
  });

  guard.step([&] { intTotal = GenerateFTPVirDirInfo(strObjectPath); });
  guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
  guard.step([&] { objParent = GetObject(strObjectPath); });
  if (objParent == nullptr) return;
  if (!guard.opened([&] { return OpenConnection(objCn, strDBName, strCaller); })) return;
  if (guard.opened([&] {
        return OpenRecordset(objRs, u"Select * from tblvirtualDirectory where 1=2"sv, objCn, kForwardOnly,
                             kOptimistic, kServerSide);
      })) {
    guard.step([&] { SetProgressBarMax(intTotal); });
    guard.forEach(objParent, [&](const ObjectRef& objChild) {
      // Stays: the security rows precede, under the status text of the previous directory; and a read that
      // fails keeps the value of the previous child.
      guard.step([&] { strName = toText(read(objChild, u"Name"sv)); });
      guard.step([&] {
        GetVirtualDirSecurityProperties(strName, strId, concat({strParentPath, u"/"sv, strName}),
                                        strParentPath, strDBName);
      });
      // Stays: two spaces after the word, where all other routines have one.
      guard.step([&] { SetStatusBarMessage(progress::StatusText(u"Processing "sv, strName)); });
      guard.step([&] { strPath = toText(read(objChild, u"Path"sv)); });
      guard.step([&] { strRead = GetPropEnabledStatus(toInt16(read(objChild, u"accessread"sv))); });
      guard.step([&] { strWrite = GetPropEnabledStatus(toInt16(read(objChild, u"accesswrite"sv))); });
      guard.step([&] { intDontLog = toInt16(read(objChild, u"dontlog"sv)); });

      guard.step([&] { call(objRs, u"AddNew"sv); });
      // Stays: read again for each row, although it is the same in all of them, and not trimmed.
      guard.step([&] { WriteColumn(objRs, u"IISPath"sv, NullToEmpty(read(objParent, u"adspath"sv))); });
      guard.step([&] { WriteText(objRs, u"Identifier"sv, strId); });
      guard.step([&] { WriteText(objRs, u"Directory name"sv, strName); });
      guard.step([&] { WriteText(objRs, u"Content source"sv, ContentSourceText(strPath)); });
      guard.step([&] { WriteText(objRs, u"Path"sv, strPath); });
      guard.step([&] { WriteText(objRs, u"Read"sv, strRead); });
      guard.step([&] { WriteText(objRs, u"Write"sv, strWrite); });
      guard.step([&] { WriteText(objRs, u"Log visits"sv, LogVisitsWord(intDontLog)); });
      guard.step([&] { call(objRs, u"Update"sv); });

      guard.step([&] { IncrementProgressBar(); });
      guard.step([&] { intDone = progress::AddOne(intDone); });
      guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
    });
    guard.step([&] { CloseRecordset(objRs, True); });
  }
  guard.step([&] { CloseConnection(objCn); });
}

}  // namespace TORVINFTPAppDataCom
