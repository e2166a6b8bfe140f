// Whether what an inventory holds agrees with what it says of itself.
#pragma once

#include <string>
#include <vector>

#include "inventory/driver.h"

namespace inventory {

// What is wrong, a line each.
std::vector<std::string> verifyContents(Session& session);

}  // namespace inventory
