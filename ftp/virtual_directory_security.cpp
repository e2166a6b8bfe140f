// IP restrictions of one virtual directory.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"
#include "ftp/FTPCollection.h"
#include "ftp/ip_restrictions.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void FTPCollection::GetVirtualDirSecurityProperties(const Text& strDirectoryName, const Text& strId,
                                                    const Text& strDirectoryPath, const Text& strParentPath,
                                                    const Text& strDBName) {
  ObjectRef objCn;
  ObjectRef objRs;
  ObjectRef objDirectory;
  ObjectRef objIPSecurity;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetVirtualDirSecurityProperties");
  });
  const RowIdentity identity = {
      {{u"IISPath"sv, strParentPath}, {u"Directory name"sv, strDirectoryName}, {u"Identifier"sv, strId}}};

  if (guard.opened([&] { return OpenConnection(objCn, strDBName, u"VirtualDirSecurity"sv); })) {
    if (guard.opened([&] {
          return OpenRecordset(objRs, u"Select * from tblvirtualDirSecurity where 1=2"sv, objCn, kForwardOnly,
                               kOptimistic, kServerSide);
        })) {
      guard.step([&] { objDirectory = GetObject(strDirectoryPath); });
      guard.step([&] { objIPSecurity = toObject(call(objDirectory, u"GetEx"sv, u"IPSecurity"sv)); });
      guard.step([&] { call(objRs, u"AddNew"sv); });
      WriteIdentity(guard, objRs, identity);
      WalkIPRestrictions(guard, objIPSecurity, objRs, identity);
      guard.step([&] { call(objRs, u"Update"sv); });
      guard.step([&] { CloseRecordset(objRs, True); });
    }
    guard.step([&] { CloseConnection(objCn); });
  }
  objRs = nullptr;
  objCn = nullptr;
  objIPSecurity = nullptr;
  objDirectory = nullptr;
  // Stays: resets the pointer at each directory, although nothing here has set it.
  guard.step([&] { progress::ShowDefaultPointer(); });
}

}  // namespace TORVINFTPAppDataCom
