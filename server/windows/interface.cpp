#include "server/windows/interface.h"

#include <algorithm>
#include <memory>

#include "automation/com/failures.h"
#include "server/windows/module.h"

namespace TORVINFTPAppDataCom {
namespace {

using automation::com::OwnedText;
using automation::com::Pointer;

// Own members have numbers below this one, those of IUnknown and IDispatch numbers from it on.
constexpr DISPID kFirstOfBases = 0x60000000;

void require(HRESULT code) {
  if (code < 0) automation::com::failPlain(code, u"the type library");
}

struct DescriptionReleaser {
  ITypeInfo* info;
  void operator()(FUNCDESC* description) const { info->ReleaseFuncDesc(description); }
};

Member describe(ITypeInfo* info, const FUNCDESC& function) {
  Member member;
  member.number = function.memid;
  member.isProperty = function.invkind != INVOKE_FUNC;
  OwnedText name;
  require(info->GetDocumentation(function.memid, name.address(), nullptr, nullptr, nullptr));
  member.name = name.view();
  for (SHORT at = 0; at < function.cParams; ++at) {
    const USHORT flags = function.lprgelemdescParam[at].paramdesc.wParamFlags;
    if ((flags & PARAMFLAG_FRETVAL) != 0) continue;
    ++member.taken;
    if ((flags & PARAMFLAG_FOPT) != 0) ++member.optional;
  }
  return member;
}

}  // namespace

const Member* Interface::find(DISPID number) const {
  const auto found = std::find_if(members.begin(), members.end(),
                                  [number](const Member& member) { return member.number == number; });
  return found == members.end() ? nullptr : &*found;
}

Interface readInterface(const GUID& id) {
  Interface read;
  require(typeLibrary()->GetTypeInfoOfGuid(id, read.typeInfo.put()));
  for (UINT at = 0;; ++at) {
    FUNCDESC* taken = nullptr;
    if (read.typeInfo->GetFuncDesc(at, &taken) < 0) break;
    const std::unique_ptr<FUNCDESC, DescriptionReleaser> function(taken, {read.typeInfo.get()});
    if (function->memid < 0 || function->memid >= kFirstOfBases) continue;
    if (read.find(function->memid) == nullptr) {
      read.members.push_back(describe(read.typeInfo.get(), *function));
    }
  }
  return read;
}

}  // namespace TORVINFTPAppDataCom
