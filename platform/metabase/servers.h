// Which server stands for which metabase snapshot, and the objects at "IIS://" paths. One table per process;
// all functions may be called from any thread.
#pragma once

#include <memory>

#include "automation/text.h"
#include "platform/metabase/metabase.h"

namespace platform::metabase {

// Says that the server of this name, compared without regard to case, is this snapshot, whatever becomes of
// the file that it came from. Replaces what was said before.
void mapServer(automation::TextView server, std::shared_ptr<const Metabase> snapshot);

// Forgets a server. Objects already given stay good.
void unmapServer(automation::TextView server);

// The snapshot of a server. Fails with 0x800706BA for a server that nobody mapped.
std::shared_ptr<const Metabase> snapshotOf(automation::TextView server);

// Enters the objects at "IIS://server/path" in the process's runtime. The path begins below /LM. An object
// has the members Name, Class, ADsPath, Parent and every property of its node; the methods Get and GetEx; and
// the node's children. It shows the snapshot of the moment when it was got, as do all children walked from
// it. A path that is not there, one with an empty piece among them, fails with 0x80070003, a name that
// neither schema nor file knows with 0x80005006, a property that a node of this class never has with
// 0x8000500D; writing fails, since a snapshot is for reading. What concerns a node begins as
// Metabase::location tells.
void registerMoniker();

}  // namespace platform::metabase
