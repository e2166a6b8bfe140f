// Which relations of a server the report draws.
#pragma once

#include "host/report/columns.h"
#include "host/report/drawing.h"

namespace host::page {

// Application pools and their applications. Network shares are marked.
Drawing drawPools(const ServerData& server);

// FTP sites and the drives and shares of their directories. Lines of writable directories are strong.
Drawing drawContent(const ServerData& server);

}  // namespace host::page
