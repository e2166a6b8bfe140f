// The walk over an IPSecurity object, which turns its list of exceptions into rows.
#pragma once

#include "frame/component.h"
#include "frame/guards.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

// Writes "All computer access" and the list of the computers to which it does not apply: one row per entry,
// one row without an entry for an empty list. The first row is open already, with its identity columns
// written; each further one gets them again. Leaves the last row open. Failures go to `guard`, step by step.
void WalkIPRestrictions(const Guard& guard, const ObjectRef& objIPSecurity, const ObjectRef& objRs,
                        const RowIdentity& identity);

}  // namespace TORVINFTPAppDataCom
