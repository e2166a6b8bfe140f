#include "host/show.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "automation/text.h"
#include "host/listing.h"
#include "host/spool.h"
#include "inventory/inventory.h"

namespace host {
namespace {

// What is to be printed, as it stood at one moment. Nobody waits for whoever reads it.
struct Picture {
  std::vector<Listing::Column> columns;
  Spool rows;
};

void takeTables(inventory::Snapshot& snapshot, const std::vector<std::string>& names, Picture& picture) {
  picture.columns = {{"Table", false}, {"Rows", true}};
  for (const std::string& name : names) {
    const std::string rows = std::to_string(snapshot.rowCount(name));
    picture.rows.add(std::vector<inventory::Cell>{name, rows});
  }
}

void takeRows(inventory::Snapshot& snapshot, const std::string& table, Picture& picture) {
  const bool isOwn = table == inventory::kCollectionsTable;
  for (std::string& name : snapshot.columnNames(table)) {
    const bool isNumber =
        isOwn && std::ranges::find(inventory::kNumberColumns, name) != std::end(inventory::kNumberColumns);
    const bool isJson = isOwn && name == inventory::kJsonColumn;
    picture.columns.push_back({std::move(name), isNumber, isJson});
  }
  snapshot.forEach(table, [&](std::span<const inventory::Cell> row) { picture.rows.add(row); });
}

void take(inventory::Snapshot& snapshot, const ShowOptions& options, Picture& picture) {
  const std::vector<std::string> names = snapshot.tableNames();
  if (names.empty()) {
    throw UsageError("the database '" + inventory::shownName(options.database) +
                     "' has none of an inventory's tables");
  }
  if (options.table.empty()) return takeTables(snapshot, names, picture);
  const auto found = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
    return automation::equalsIgnoringCase(automation::fromUtf8(name), automation::fromUtf8(options.table));
  });
  if (found == names.end()) {
    std::string message = "there is no table '" + options.table + "'; there are:";
    for (const std::string& name : names) message += (name == names.front() ? " " : ", ") + name;
    throw UsageError(message);
  }
  takeRows(snapshot, *found, picture);
}

Picture takePicture(const ShowOptions& options) {
  const auto inventory = inventory::openForReading(options.database, options.access);
  const auto snapshot = inventory->snapshot();
  Picture picture;
  take(*snapshot, options, picture);
  return picture;
}

// Once more, as a whole, where the server is lost.
Picture takePictureOrAgain(const ShowOptions& options) {
  try {
    return takePicture(options);
  } catch (const inventory::Unreachable&) {
    return takePicture(options);
  }
}

}  // namespace

void show(const ShowOptions& options, Output& output) {
  Picture picture = takePictureOrAgain(options);
  Listing listing{picture.columns, {}};
  listing.forEachRow = [&picture](const std::function<void(const Row&)>& each) {
    picture.rows.forEach(picture.columns.size(), each);
  };
  print(listing, options.format, output);
  output.flush();
}

}  // namespace host
