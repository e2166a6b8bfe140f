// Which computers may reach one virtual directory.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
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
  const auto writeIdentity = [&] {
    guard.step([&] { WriteColumn(objRs, u"IISPath", NullToEmpty(Trim(strParentPath))); });
    guard.step([&] { WriteColumn(objRs, u"Directory name", NullToEmpty(Trim(strDirectoryName))); });
    guard.step([&] { WriteColumn(objRs, u"Identifier", NullToEmpty(Trim(strId))); });
  };

  if (!guard.test([&] { return OpenConnection(objCn, strDBName, u"VirtualDirSecurity") == False; })) {
    if (!guard.test([&] {
          return OpenRecordset(objRs, u"Select * from tblvirtualDirSecurity where 1=2", objCn, kForwardOnly,
                               kOptimistic, kServerSide) == False;
        })) {
      guard.step([&] { objDirectory = GetObject(strDirectoryPath); });
      guard.step([&] { objIPSecurity = toObject(call(objDirectory, u"GetEx", u"IPSecurity")); });
      guard.step([&] { call(objRs, u"AddNew"); });
      writeIdentity();
      WalkIPRestrictions(guard, objIPSecurity, objRs, writeIdentity);
      guard.step([&] { call(objRs, u"Update"); });
      guard.step([&] { CloseRecordset(objRs, True); });
    }
    guard.step([&] { CloseConnection(objCn); });
  }
  objRs = nullptr;
  objCn = nullptr;
  objIPSecurity = nullptr;
  objDirectory = nullptr;
  guard.step([&] { write(Screen(), u"MousePointer", kPointerDefault); });
}

}  // namespace TORVINFTPAppDataCom
