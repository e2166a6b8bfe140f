#include "host/show.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/listing.h"
#include "host/nearest.h"
#include "host/sections.h"
#include "host/servers.h"
#include "host/spool.h"
#include "inventory/inventory.h"
#include "inventory/names.h"
#include "inventory/not_known.h"
#include "inventory/records.h"

namespace host {
namespace {

using inventory::Cell;
using Strings = std::vector<std::string>;

constexpr const char* kNotKnownColumn = "Not known";

// What is to be printed of one table, as it stood at one moment. Nobody waits for whoever reads it.
struct Picture {
  std::string table;
  std::vector<Listing::Column> columns;
  Spool rows;
};

// A row on its way to the picture, and which of its cells aren't known.
struct Candidate {
  std::vector<Cell> cells;
  inventory::NotKnownCells notKnown;

  // What conditions and a sorting go by.
  std::string_view text(std::size_t column) const {
    return notKnown.has(column) ? kNotKnownText : cells[column].value_or("");
  }
};

std::optional<double> numberOf(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  // "nan" and "inf" are words here.
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) return std::nullopt;
  return number;
}

// Numbers by their value and ahead of texts, texts without regard to case.
bool isLess(const std::string& left, const std::string& right) {
  const auto one = numberOf(left), other = numberOf(right);
  if (one && other) return *one < *other;
  if (one || other) return one.has_value();
  return inventory::folded(left) < inventory::folded(right);
}

// The rows of a table that are wanted, and what of them is.
class Taker {
 public:
  Taker(inventory::Snapshot& snapshot, const ShowOptions& options, const inventory::NotKnown& notKnown,
        std::string table)
      : snapshot_(snapshot), options_(options), notKnown_(notKnown), table_(std::move(table)) {
    for (std::string& name : snapshot.columnNames(table_)) names_.push_back(std::move(name));
    for (const std::string& wanted : options.columns) shown_.push_back(place(wanted));
    if (shown_.empty()) {
      for (std::size_t at = 0; at < names_.size(); ++at) shown_.push_back(at);
    }
    for (const Condition& condition : options.conditions)
      conditions_.emplace_back(place(condition.column), &condition);
    if (!options.sort.empty()) sort_ = place(options.sort);
    tablePlace_ = inventory::tableIndex(table_);
    if (tablePlace_ < inventory::tables().size()) {
      for (const std::string_view column : inventory::tables()[tablePlace_].columns) {
        places_.push_back(placeOf(column).value_or(names_.size()));
      }
    }
  }

  void take(const Strings& servers, Picture& picture) {
    picture.table = table_;
    const bool isOwn = table_ == inventory::kCollectionsTable;
    for (const std::size_t at : shown_) {
      const std::string& name = names_[at];
      const bool isNumber =
          isOwn && std::ranges::find(inventory::kNumberColumns, name) != std::end(inventory::kNumberColumns);
      picture.columns.push_back({name, isNumber, isOwn && name == inventory::kJsonColumn});
    }
    if (tellsWhatIsNotKnown()) picture.columns.push_back({kNotKnownColumn});
    std::vector<std::pair<std::string, std::vector<std::optional<std::string>>>> sorted;
    const auto handle = [&](const Candidate& row) {
      if (!isWanted(row)) return;
      if (!sort_) return picture.rows.add(shown(row));
      std::vector<std::optional<std::string>> kept;
      for (const Cell& cell : shown(row)) kept.emplace_back(cell);
      sorted.emplace_back(row.text(*sort_), std::move(kept));
    };
    forEach(servers, handle);
    std::ranges::stable_sort(sorted, [&](const auto& left, const auto& right) {
      return options_.isReversed ? isLess(right.first, left.first) : isLess(left.first, right.first);
    });
    for (const auto& [key, row] : sorted) picture.rows.add(std::vector<Cell>(row.begin(), row.end()));
  }

 private:
  std::optional<std::size_t> placeOf(std::string_view column) const {
    const auto found = std::ranges::find_if(
        names_, [&](const std::string& name) { return inventory::sameName(name, column); });
    if (found == names_.end()) return std::nullopt;
    return static_cast<std::size_t>(found - names_.begin());
  }

  std::size_t place(const std::string& column) const {
    if (const auto found = placeOf(column)) return *found;
    std::string all;
    for (const std::string& name : names_) all += (all.empty() ? " " : ", ") + name;
    const std::string meant = didYouMean(column, names_);
    throw UsageError("the table " + table_ + " has no column '" + column + "'" +
                     (meant.empty() ? "; it has:" + all : meant));
  }

  bool tellsWhatIsNotKnown() const {
    return options_.format != Format::kTable && tablePlace_ < inventory::tables().size();
  }

  template <typename Handle>
  void forEach(const Strings& servers, const Handle& handle) {
    Candidate row;
    row.cells.resize(names_.size());
    const auto take = [&] {
      row.notKnown = {};
      if (tablePlace_ < inventory::tables().size() && !notKnown_.empty()) {
        const auto found = notKnown_.of(tablePlace_, [&](std::size_t column) {
          return places_[column] < row.cells.size() ? row.cells[places_[column]] : Cell();
        });
        // By the place in this database's table.
        for (std::size_t column = 0; column < places_.size(); ++column) {
          if (found.has(column) && places_[column] < names_.size())
            row.notKnown.columns |= 1U << places_[column];
        }
      }
      handle(row);
    };
    if (options_.servers.empty()) {
      snapshot_.forEach(table_, [&](std::span<const Cell> cells) {
        row.cells.assign(cells.begin(), cells.end());
        take();
      });
      return;
    }
    // That gives the columns as the inventory has them.
    const auto every = inventory::everyTable();
    const auto table = std::ranges::find(every, table_, &inventory::Table::name);
    const auto rows = snapshot_.rowsOf(table_, servers);
    while (rows->next()) {
      for (std::size_t at = 0; at < names_.size(); ++at) row.cells[at].reset();
      for (std::size_t at = 0; at < (*table)->columns.size(); ++at) {
        if (const auto to = placeOf((*table)->columns[at])) row.cells[*to] = rows->cell(at);
      }
      take();
    }
  }

  bool isWanted(const Candidate& row) const {
    return std::ranges::all_of(conditions_, [&](const auto& pair) {
      const std::string_view text = row.text(pair.first);
      switch (pair.second->kind) {
        case Condition::Kind::kIs:
          return inventory::sameName(text, pair.second->text);
        case Condition::Kind::kIsNot:
          return !inventory::sameName(text, pair.second->text);
        case Condition::Kind::kContains:
          break;
      }
      return inventory::folded(text).find(inventory::folded(pair.second->text)) != std::string::npos;
    });
  }

  // Good until the next call.
  const std::vector<Cell>& shown(const Candidate& row) {
    out_.clear();
    for (const std::size_t at : shown_) {
      const bool isHidden = row.notKnown.has(at) && options_.format == Format::kTable;
      out_.push_back(isHidden ? Cell(kNotKnownText) : row.cells[at]);
    }
    if (tellsWhatIsNotKnown()) {
      columns_.clear();
      for (std::size_t at = 0; at < names_.size(); ++at) {
        if (row.notKnown.has(at)) columns_ += (columns_.empty() ? "" : "; ") + names_[at];
      }
      out_.emplace_back(columns_);
    }
    return out_;
  }

  inventory::Snapshot& snapshot_;
  const ShowOptions& options_;
  const inventory::NotKnown& notKnown_;
  const std::string table_;
  Strings names_;
  std::vector<std::size_t> shown_;
  std::vector<std::pair<std::size_t, const Condition*>> conditions_;
  std::optional<std::size_t> sort_;
  std::size_t tablePlace_ = 0;
  std::vector<std::size_t> places_;  // of the inventory's columns in the database's table
  std::vector<Cell> out_;
  std::string columns_;
};

// The tables that are meant: by their own names or by a tab's.
Strings tablesNamed(const ShowOptions& options, const Strings& there) {
  Strings found;
  const auto add = [&](std::string_view name) {
    if (std::ranges::find(there, name) != there.end() && std::ranges::find(found, name) == found.end())
      found.emplace_back(name);
  };
  for (const std::string& wanted : options.tables) {
    const std::size_t before = found.size();
    bool isKnown = false;
    for (const std::string& name : there) {
      if (!inventory::sameName(name, wanted)) continue;
      isKnown = true;
      add(name);
    }
    for (const Section& section : sections()) {
      if (isKnown || !inventory::sameName(section.name, wanted)) continue;
      for (const std::string_view table : section.tables) add(table);
    }
    isKnown =
        isKnown || found.size() > before || std::ranges::any_of(sections(), [&](const Section& section) {
          return inventory::sameName(section.name, wanted) &&
                 std::ranges::any_of(section.tables, [&](std::string_view table) {
                   return std::ranges::find(there, table) != there.end();
                 });
        });
    if (isKnown) continue;
    Strings names = there;
    for (const Section& section : sections()) names.emplace_back(section.name);
    std::string message = "there is no table '" + wanted + "'";
    const std::string meant = didYouMean(wanted, names);
    if (!meant.empty()) throw UsageError(message + meant);
    message += "; there are:";
    for (const std::string& name : there) message += (name == there.front() ? " " : ", ") + name;
    throw UsageError(message);
  }
  return found;
}

// The tables and how many rows they have.
Picture listOf(inventory::Snapshot& snapshot, const Strings& names, const ShowOptions& options) {
  if (!options.columns.empty() || !options.conditions.empty() || !options.sort.empty()) {
    throw UsageError("--columns, --where and --sort need a table");
  }
  const Strings servers = chosenServers(snapshot, options.servers);
  Picture picture;
  picture.columns = {{"Table"}, {"Rows", true}};
  for (const std::string& name : names) {
    std::int64_t count = 0;
    if (options.servers.empty()) {
      count = snapshot.rowCount(name);
    } else {
      const auto rows = snapshot.rowsOf(name, servers);
      while (rows->next()) ++count;
    }
    const std::string text = std::to_string(count);
    picture.rows.add(std::vector<Cell>{name, text});
  }
  return picture;
}

std::vector<Picture> takePictures(const ShowOptions& options) {
  const auto inventory = inventory::openForReading(options.database, options.access);
  const auto snapshot = inventory->snapshot();
  const Strings there = snapshot->tableNames();
  if (there.empty()) {
    throw UsageError("the database '" + inventory::shownName(options.database) +
                     "' has none of an inventory's tables");
  }
  std::vector<Picture> pictures;
  if (options.tables.empty()) {
    pictures.push_back(listOf(*snapshot, there, options));
    return pictures;
  }
  const Strings names = tablesNamed(options, there);
  if (names.size() > 1 && options.format == Format::kCsv) {
    std::string all;
    for (const std::string& name : names) all += (all.empty() ? "" : ", ") + name;
    throw UsageError("csv takes one table at a time; these are: " + all);
  }
  const Strings servers = chosenServers(*snapshot, options.servers);
  const inventory::NotKnown notKnown = inventory::readNotKnown(*snapshot, servers);
  for (const std::string& name : names) {
    Taker(*snapshot, options, notKnown, name).take(servers, pictures.emplace_back());
  }
  return pictures;
}

// Once more, as a whole, where the server is lost.
std::vector<Picture> takePicturesOrAgain(const ShowOptions& options) {
  try {
    return takePictures(options);
  } catch (const inventory::Unreachable&) {
    return takePictures(options);
  }
}

}  // namespace

void show(const ShowOptions& options, Output& output) {
  std::vector<Picture> pictures = takePicturesOrAgain(options);
  const bool several = pictures.size() > 1;
  for (Picture& picture : pictures) {
    const bool isFirst = &picture == &pictures.front();
    Listing listing{picture.columns, {}};
    listing.forEachRow = [&picture](const std::function<void(const Row&)>& each) {
      picture.rows.forEach(picture.columns.size(), each);
    };
    // Tables one below the other, or as members of one object.
    if (several && options.format == Format::kTable) {
      output.write((isFirst ? "" : "\n") + picture.table + "\n\n");
    } else if (several) {
      output.write((isFirst ? "{\"" : ",\"") + picture.table + "\": ");
    }
    print(listing, {options.format, true, options.isWide, options.inBlocks, options.hasMark}, output);
  }
  if (several && options.format == Format::kJson) output.write("}\n");
  output.flush();
}

}  // namespace host
