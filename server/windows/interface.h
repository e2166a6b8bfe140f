// The parts of an interface's type information that Invoke needs.
#pragma once

#include <vector>

#include "automation/com/owned.h"
#include "automation/text.h"

namespace TORVINFTPAppDataCom {

// A member of a dual interface: its name, the numbers of accepted and of optional arguments.
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

  // Returns the member with a number, or null.
  const Member* find(DISPID number) const;
};

// Reads an interface from the library's own type library. Fails if it is missing.
Interface readInterface(const GUID& id);

}  // namespace TORVINFTPAppDataCom
