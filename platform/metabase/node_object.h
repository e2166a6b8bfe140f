// A node of a metabase as an automation object.
#pragma once

#include <memory>

#include "automation/object.h"
#include "platform/metabase/metabase.h"

namespace platform::metabase {

// Shared by the objects of one request: the snapshot, and the server's name as spelled by the caller.
struct Origin {
  std::shared_ptr<const Metabase> metabase;
  automation::Text server;
};

automation::ObjectRef makeNodeObject(std::shared_ptr<const Origin> origin, Metabase::NodeId node);

}  // namespace platform::metabase
