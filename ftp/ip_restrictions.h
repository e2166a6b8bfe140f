// The walk over an IPSecurity object, which turns its list of exceptions into rows.
#pragma once

#include <functional>

#include "frame/component.h"
#include "frame/guards.h"

namespace TORVINFTPAppDataCom {

// Writes "All computer access" and the list of the computers to which it does not apply: one row per entry,
// one row without an entry for an empty list. The first row stands open with its identity columns written;
// for each further one `writeIdentity` writes them again. Leaves the last row open. Failures go to `guard`,
// step by step.
void WalkIPRestrictions(const ContinueOnFailure& guard, const ObjectRef& objIPSecurity,
                        const ObjectRef& objRs, const std::function<void()>& writeIdentity);

}  // namespace TORVINFTPAppDataCom
