// What the component's records refer to: table, site or pool, node and property.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "automation/text.h"
#include "host/collect/record_parser.h"
#include "inventory/inventory.h"

namespace host {

// The node and property at the beginning of a message of the metabase, as in
// "IIS://WEB01/W3SVC/1/Filters (IIsFilters), Path: a node of this class has no such property".
struct MessageLocation {
  std::string node;
  std::string property;
  std::string reason;  // the message without its node
};
MessageLocation parseMessageLocation(std::string_view message);

// The current call of the component and its progress.
class RecordContext {
 public:
  // A site or pool, with the name that status texts use.
  struct Item {
    automation::Text name;
    std::string id;
  };

  // A call for one item and perhaps one node; empty texts if there is none.
  static RecordContext ofItem(std::string_view table, inventory::ObjectKind kind, std::string item,
                              std::string node);
  // A call for all items, in the order of discovery. Its status texts name the current item.
  static RecordContext ofAll(std::string_view table, inventory::ObjectKind kind,
                             const std::vector<Item>& items);

  // Handles a status text. `since`: the problems since the previous one.
  void sent(automation::TextView status, std::span<inventory::Problem> since);

  // Converts a record of this call; nothing if it is no problem. Must be called in the order of the records.
  // `unset`: the location of the value whose absence the record is about, as a message begins with it; empty
  // if it is unknown.
  std::optional<inventory::Problem> problemOf(const Record& record, const std::string& server,
                                              const std::string& unset);

 private:
  // In a walk over directories: the one in the last status text; empty if there is none.
  std::string directory() const;

  std::string_view table_;
  inventory::ObjectKind kind_ = inventory::ObjectKind::kNone;
  std::string item_;
  std::string node_;
  const std::vector<Item>* items_ = nullptr;
  std::size_t next_ = 0;
  automation::Text directoryStatus_;  // that text
  // Of the last record.
  std::string lastRoutine_;
  MessageLocation last_;
};

}  // namespace host
