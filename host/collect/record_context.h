// Where the component's records belong: which table, which site or pool, which node and property.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "automation/text.h"
#include "host/collect/record_parser.h"
#include "inventory/inventory.h"

namespace host {

// The node and the property that a message of the metabase begins with, as in
// "IIS://WEB01/W3SVC/1/Filters (IIsFilters), Path: a node of this class has no such property".
struct MessagePlace {
  std::string node;
  std::string property;
  std::string reason;  // the message without its node
};
MessagePlace parseMessageLocation(std::string_view message);

// The call that is under way, and how far it has come.
class RecordContext {
 public:
  // The sites or pools in the order of discovery, with the names that the status texts bear.
  struct Item {
    automation::Text name;
    std::string id;
  };

  // A call for one item, whose records may concern a node besides; empty texts where they don't.
  static RecordContext ofItem(std::string_view table, inventory::ObjectKind kind, std::string item,
                              std::string node);
  // A call for all items, in which the status texts tell how far it has come.
  static RecordContext ofAll(std::string_view table, inventory::ObjectKind kind,
                             const std::vector<Item>& items);

  // A status text has been sent, and these problems have been told since the one before it.
  void sent(automation::TextView status, std::span<inventory::Problem> since);

  // What a record of this call says. To be asked in the order of the records.
  inventory::Problem problemOf(const Record& record, const std::string& server);

 private:
  // Of a walk over directories: the one that the last status text has named; empty for none.
  std::string directory() const;

  std::string_view table_;
  inventory::ObjectKind kind_ = inventory::ObjectKind::kNone;
  std::string item_;
  std::string node_;
  const std::vector<Item>* items_ = nullptr;
  std::size_t next_ = 0;
  automation::Text directoryStatus_;  // that text
  // Whose failure the last record told.
  std::string lastRoutine_;
  MessagePlace last_;
};

}  // namespace host
