// Which applications each pool of a server has.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "automation/text.h"
#include "platform/metabase/metabase.h"

namespace platform::wmi {

// The applications of a snapshot by their pool: every node below /LM/W3SVC whose own AppRoot names the node
// itself, in the order of the tree.
class Applications {
 public:
  // The index of a snapshot. It is made once, by one walk over the tree, and kept as long as the snapshot.
  // Any thread may ask.
  static std::shared_ptr<const Applications> of(const std::shared_ptr<const metabase::Metabase>& metabase,
                                                automation::TextView server);

  // Walks the tree. Fails, in the name of the server, as reading AppPoolId does.
  Applications(const metabase::Metabase& metabase, automation::TextView server);

  // The applications whose pool, their own or inherited, has this name in any case.
  const std::vector<metabase::Metabase::NodeId>& inPool(automation::TextView pool) const;

 private:
  std::unordered_map<automation::Text, std::vector<metabase::Metabase::NodeId>> byPool_;
};

}  // namespace platform::wmi
