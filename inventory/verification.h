// Checks an inventory's data for consistency.
#pragma once

#include <string>
#include <vector>

#include "inventory/driver.h"

namespace inventory {

// Returns a line per inconsistency.
std::vector<std::string> verifyContents(Session& session);

}  // namespace inventory
