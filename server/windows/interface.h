// What the type library says of one of the interfaces, as Invoke needs it.
#pragma once

#include <vector>

#include "automation/com/owned.h"
#include "automation/text.h"

namespace TORVINFTPAppDataCom {

// A member of a dual interface: its name, how many arguments it takes, how many of them may be left out.
struct Member {
  DISPID number = DISPID_UNKNOWN;
  bool isProperty = false;
  automation::Text name;
  UINT taken = 0;
  UINT optional = 0;
};

struct Interface {
  automation::com::Pointer<ITypeInfo> typeInfo;
  std::vector<Member> members;

  // The member of a number, or null.
  const Member* find(DISPID number) const;
};

// Reads an interface out of the library's own type library. Fails where that can't be.
Interface readInterface(const GUID& id);

}  // namespace TORVINFTPAppDataCom
