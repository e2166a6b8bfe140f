// Converts the exception list of an IPSecurity object to rows.
#pragma once

#include "frame/component.h"
#include "frame/guards.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

// Writes "All computer access" and the list of computers that are exempt from it: one row per entry, one row
// without an entry for an empty list. The first row is already pending with its identity columns; each
// further row gets the same. Leaves the last row pending. Failures go to `guard`, step by step.
void WalkIPRestrictions(const Guard& guard, const ObjectRef& objIPSecurity, const ObjectRef& objRs,
                        const RowIdentity& identity);

}  // namespace TORVINFTPAppDataCom
