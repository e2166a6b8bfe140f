// The applications of each application pool.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "automation/text.h"
#include "platform/metabase/metabase.h"

namespace platform::wmi {

// The applications of a snapshot by pool: every node below /LM/W3SVC whose own AppRoot is its own path, in
// tree order.
class Applications {
 public:
  // The index of a snapshot, built on first use and cached while the snapshot exists. Thread-safe.
  static std::shared_ptr<const Applications> of(const std::shared_ptr<const metabase::Metabase>& metabase,
                                                automation::TextView server);

  // Traverses the tree. Throws the Failure of reading AppPoolId, with `server` in its message.
  Applications(const metabase::Metabase& metabase, automation::TextView server);

  // The applications whose own or inherited pool has this name, ignoring case.
  const std::vector<metabase::Metabase::NodeId>& inPool(automation::TextView pool) const;

 private:
  std::unordered_map<automation::Text, std::vector<metabase::Metabase::NodeId>> byPool_;
};

}  // namespace platform::wmi
