// Maps server names to metabase snapshots and serves the objects at "IIS://" paths. One map per process; all
// functions are thread-safe.
#pragma once

#include <memory>

#include "automation/text.h"
#include "platform/metabase/metabase.h"

namespace platform::metabase {

// Maps a server name, compared case-insensitively, to a snapshot. Replaces an earlier mapping.
void mapServer(automation::TextView server, std::shared_ptr<const Metabase> snapshot);

// Removes a server. Objects obtained earlier stay valid.
void unmapServer(automation::TextView server);

// The snapshot of a server. Throws Failure 0x800706BA for an unmapped server.
std::shared_ptr<const Metabase> snapshotOf(automation::TextView server);

// Registers the objects at "IIS://server/path" with the process's runtime; the path is relative to /LM. An
// object has the properties Name, Class, ADsPath, Parent and those of its node, the methods Get and GetEx,
// and the node's children. It and its children refer to the snapshot that was mapped when the object was
// obtained. Failures: 0x80070003 for a path that does not exist or has an empty component, 0x80005006 for a
// property that neither the schema nor the file has, 0x8000500D for a property that the node's class does not
// have; writing always fails. Messages about a node begin with Metabase::location().
void registerMoniker();

}  // namespace platform::metabase
