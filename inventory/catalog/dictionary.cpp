#include <algorithm>

#include "inventory/catalog/catalog.h"
#include "inventory/catalog/views.h"
#include "inventory/publication.h"

namespace inventory {
namespace {

std::string nullMeaningOf(const Column& column) {
  if (column.role == Role::kIdentity) return "not read";
  return column.properties == "*" && column.type != Type::kText ? "none"
                                                                : "not written: does not apply, or unknown";
}

std::string_view propertiesOf(std::string_view properties) {
  return properties.size() > 1 ? properties : std::string_view();
}

void addTable(const Table& table, std::vector<DictionaryEntry>& entries) {
  const bool isData = table.kinds[0] != ObjectKind::kNone;
  const auto add = [&](std::string_view column, Type type, std::string_view meaning, std::string null,
                       std::string_view properties) {
    entries.push_back({std::string(table.name), false, table.meaning, std::string(column), type,
                       std::string(meaning), std::move(null), std::string(properties)});
  };
  if (isData) {
    const bool several = table.hasSeveralRows;
    add("id", Type::kInteger, several ? "Number of the row" : "Number of the object that the row is about",
        "never", "");
    if (several) add("object_id", Type::kInteger, "Object that the row is about", "it fits none", "");
    add("not_known", Type::kText, "Unknown columns, as |column| by their names in views", "none is unknown",
        "");
  }
  for (const Column& column : table.columns) {
    const bool isOwn = column.role != Role::kIdentity && !isData;
    add(column.name, column.type, column.meaning, isOwn ? "none" : nullMeaningOf(column),
        propertiesOf(column.properties));
  }
}

std::string escapedForMarkdown(std::string_view text) {
  std::string escaped;
  for (const char c : text) escaped += c == '|' ? "\\|" : std::string(1, c);
  return escaped;
}

}  // namespace

std::vector<DictionaryEntry> dictionary() {
  std::vector<DictionaryEntry> entries;
  const Dialect dialect(Dialect::Kind::kPostgres, "");
  for (const View& view : views(dialect, std::string(kSelectedView))) {
    for (const ViewColumn& column : view.columns) {
      entries.push_back({view.name, true, view.meaning, column.name, column.type, std::string(column.meaning),
                         "unknown, not collected, or no value of the type",
                         std::string(propertiesOf(column.properties)), column.isBookkeeping});
    }
  }
  for (const Table& table : tables()) addTable(table, entries);
  for (const Table& table : ownTables()) addTable(table, entries);
  return entries;
}

std::string dictionaryPage(std::span<const DictionaryEntry> entries) {
  std::string relation,
      page =
          "# Data dictionary\n\n"
          "The views and tables of an inventory, the same in SQLite and PostgreSQL. This page is generated: "
          "`iisinventory schema\n--format markdown > docs/tables.md`. Null in a view means that a value is "
          "unknown, "
          "was not collected, or is not\nof the column's type; the column Null says what it means in a "
          "table. An "
          "empty text is an empty value.\n";
  for (const DictionaryEntry& entry : entries) {
    if (entry.relation != relation) {
      relation = entry.relation;
      page += "\n## " + relation + "\n\n" + (entry.isView ? "View. " : "Table. ") +
              std::string(entry.relationMeaning) +
              ".\n\n| Column | Type | Meaning | Null | Metabase properties |\n" + "|---|---|---|---|---|\n";
    }
    page += "| `" + escapedForMarkdown(entry.column) + "` | " + std::string(wordFor(entry.type)) + " | " +
            escapedForMarkdown(entry.meaning) + " | " + entry.nullMeaning + " | " + entry.properties + " |\n";
  }
  return page;
}

}  // namespace inventory
