#include "inventory/catalog/views.h"

#include <fmt/core.h>

#include "inventory/names.h"

namespace inventory {
namespace {

constexpr const char* kId = "(o.collection_id * 4294967296 + o.number)";  // of an object
constexpr const char* kParentId = "o.collection_id * 4294967296 + o.parent";

// A view, or a part of the union of all entries with the same name: one row per object of a kind, or per
// collection or problem.
struct ViewPart {
  std::string_view name, meaning;
  ObjectKind kind;         // kNone for every object
  std::string_view table;  // source of the rows; empty for all tables about the kind, one row of each
};

constexpr ViewPart kParts[] = {
    {"ftp_site", "FTP sites", ObjectKind::kSite, ""},
    {"ftp_directory", "Virtual directories of FTP sites", ObjectKind::kDirectory, ""},
    {"ftp_access", "Addresses that may reach FTP sites and directories; a row for each", ObjectKind::kSite,
     "tblDirectorySecuritySetting"},
    {"ftp_access", "", ObjectKind::kDirectory, "tblvirtualDirSecurity"},
    {"app_pool", "Application pools", ObjectKind::kPool, ""},
    {"web_extension", "Web service extensions; a row for each file", ObjectKind::kExtension,
     "tblWSExtension"},
    {"application", "Web sites and virtual directories that application pools serve",
     ObjectKind::kApplication, "tblAppliedObject"},
    {"object", "What the rows are about, with its place in the metabase and in the file", ObjectKind::kNone,
     "objects"},
    {"collection", "The collections that the views show", ObjectKind::kNone, "Collections"},
    {"problem", "What could not be read, and what was noted", ObjectKind::kNone, "Problems"}};

// Builds the columns of a part of a view. In SQL "s" is the selected collection, "o" the object, and "t" or
// "t1" and so on its row in a table.
class PartMaker {
 public:
  PartMaker(const Dialect& dialect, const ViewPart& part, const std::string& selected)
      : dialect_(dialect), part_(part) {
    view_.name = part.name;
    view_.meaning = part.meaning;
    from_ = " from " + selected + " s";
    add("server", "s.server", Type::kText, "Name of the server");
    if (part.kind != ObjectKind::kNone || part.table == "objects") {
      addObject();
    } else {
      from_ += fmt::format(" join {} t on t.collection_id = s.collection_id", quotedName(part.table));
      if (part.name == "problem")
        add("is_note", R"(t."Kind" = 'note')", Type::kBoolean, "Whether it is a note and no problem");
      addColumns(part.table, "t");
    }
    view_.select = "select " + columns_ + from_;
  }

  View take() { return std::move(view_); }

 private:
  void addObject() {
    from_ += " join objects o on o.collection_id = s.collection_id";
    if (part_.name == "object") {
      addPlace();
    } else {
      from_ += fmt::format(" and o.kind = {}", static_cast<int>(part_.kind));
      if (part_.name == "ftp_site")
        add("identifier", number("o.key"), Type::kInteger, "Identifier of the site");
      if (part_.name == "app_pool") add("name", "o.key", Type::kText, "Name of the application pool");
      addTables();
    }
    if (part_.name == "ftp_site" || part_.name == "ftp_directory")
      addIncomplete("access_incomplete", "ftp_access");
    if (part_.name == "ftp_site") addIncomplete("directories_incomplete", "ftp_directory");
    if (part_.name == "app_pool") addIncomplete("applications_incomplete", "application");
    if (part_.name == "application") add("pool_id", kParentId, Type::kInteger, "Object of the pool");
    add("object_id", kId, Type::kInteger, "Object that the row is about");
  }

  void addPlace() {
    std::string kinds = "case o.kind", nodes = "case o.kind";
    for (std::size_t at = 1; at < std::size(kKindWords); ++at) {
      const std::string_view root = nodeRootOf(static_cast<ObjectKind>(at));
      kinds += fmt::format(" when {} then {}", at, quotedText(kKindWords[at]));
      if (!root.empty())
        nodes += fmt::format(" when {} then {} || o.key", at, quotedText(fmt::format("/LM/{}", root)));
    }
    add("kind", kinds + " end", Type::kText, "site, directory, pool, extension or application");
    add("key", "o.key", Type::kText, "Identifier, path below the service, or name");
    add("node", nodes + " end", Type::kText, "Metabase path; null for an extension or application");
    add("line", "o.line", Type::kInteger, "Line of the file; null where it is not known");
    add("incomplete", "o.incomplete", Type::kText,
        "Views that may lack rows of it, as |view|; null for none");
    add("parent_id", kParentId, Type::kInteger, "Object that it belongs to");
  }

  // The columns of a table, or of all tables about the kind. If a table has several rows per object, values
  // that are the same in all of them come from the first row.
  void addTables() {
    if (!part_.table.empty()) {
      from_ += fmt::format(" join {} t on t.id = {}", quotedName(part_.table), kId);
      return part_.name == "ftp_access" ? addAccess() : addColumns(part_.table, "t");
    }
    int joins = 0;
    for (const Table& table : tables()) {
      if (!table.isAbout(part_.kind)) continue;
      const std::string alias = fmt::format("t{}", ++joins);
      from_ += fmt::format(" left join {0} {1} on {1}.id = {2}", quotedName(table.name), alias, kId);
      if (table.hasSeveralRows) from_ += fmt::format(" and {}.number = 1", alias);
      addColumns(table.name, alias);
    }
  }

  // One row per address, and one for an object without addresses.
  void addAccess() {
    const bool isSite = part_.kind == ObjectKind::kSite;
    const std::string granted = "t." + quotedName("Granted IP Address (Subnet mask)"),
                      denied = "t." + quotedName("Denied IP Address (Subnet mask)"),
                      entry = fmt::format("coalesce(nullif({}, ''), {}, '')", granted, denied),
                      bracket = position(entry + " || ' ('", " (");
    const std::span<const Column> columns = declarations::columnsOf(part_.table);
    const Column& all = *std::ranges::find(columns, "grants_others", &Column::viewName);
    const auto text = [&](std::string_view column) {
      return isSite ? "cast(null as text)" : "t." + quotedName(column);
    };
    const auto addKnown = [&](std::string_view name, Type type, const std::string& sql,
                              std::string_view meaning) {
      add(name, known("t", all, sql), type, meaning, all.properties);
    };
    add("site_identifier", number(isSite ? "o.key" : text(kSiteColumn)), Type::kInteger,
        "Identifier of the site");
    add("parent", text(kPathColumn), Type::kText, "Metabase path of the directory above; null for a site");
    add("name", text(kDirectoryColumn), Type::kText, "Name of the directory; null for a site");
    addKnown(all.viewName, Type::kBoolean, typed("t." + quotedName(all.name), Type::kBoolean), all.meaning);
    addKnown("is_granted", Type::kBoolean,
             fmt::format("case when {} <> '' then true when {} <> '' then false end", granted, denied),
             "Whether the address is granted or denied access; null where there is no address");
    addKnown("address", Type::kText, fmt::format("substr({}, 1, {} - 1)", entry, bracket),
             "Address; empty for an object without any");
    addKnown("mask", Type::kText, fmt::format("replace(substr({}, {} + 2), ')', '')", entry, bracket),
             "Subnet mask; empty for a single address");
  }

  // The columns of a table that views have and that the view has not.
  void addColumns(std::string_view table, const std::string& alias) {
    for (const Column& column : declarations::columnsOf(table)) {
      const bool isOfKind = column.onlyOf == ObjectKind::kNone || column.onlyOf == part_.kind;
      const bool isThere = std::ranges::count(view_.columns, column.viewName, &ViewColumn::name) > 0;
      if (column.viewName.empty() || !isOfKind || isThere) continue;
      std::string value = fmt::format("{}.{}", alias, quotedName(column.name));
      if (part_.kind != ObjectKind::kNone) {
        const bool isList = part_.table.empty() && column.role == Role::kListed;
        value = known(alias, column, isList ? listOf(column) : typed(value, column.viewType));
      } else if (column.type != column.viewType) {
        value = typed(value, column.viewType);
      }
      add(column.viewName, value, column.viewType, column.meaning, column.properties);
      view_.columns.back().isBookkeeping |= column.role == Role::kBookkeeping;
    }
  }

  void addIncomplete(std::string_view name, const std::string& view) {
    add(name, position("coalesce(o.incomplete, '')", fmt::format("|{}|", view)) + " > 0", Type::kBoolean,
        fmt::format("Whether rows in {} may be missing", view));
  }

  void add(std::string_view name, const std::string& sql, Type type, std::string_view meaning,
           std::string_view properties = {}) {
    columns_ += fmt::format("{}{} as {}", columns_.empty() ? "" : ", ", sql, quotedName(name));
    view_.columns.push_back(
        {std::string(name), type, std::string(meaning), properties, name.ends_with("_id")});
  }

  // All values of an object in a column, separated by commas.
  std::string listOf(const Column& column) const {
    const std::string value = fmt::format("nullif(x.{}, '')", quotedName(column.name));
    const std::string from = fmt::format("from {} x where x.id = {}", quotedName(column.table), kId);
    if (dialect_.isPostgres())
      return fmt::format("coalesce((select string_agg({}, ', ' order by x.number) {}), '')", value, from);
    return fmt::format(
        "coalesce((select group_concat(v, ', ') from (select {} as v {} order by x.number)), '')", value,
        from);
  }

  // Null if the row is missing or the cell is unknown.
  std::string known(const std::string& alias, const Column& column, const std::string& value) const {
    const std::string notKnown = fmt::format("coalesce({}.not_known, '')", alias);
    return fmt::format("case when {}.id is null or {} > 0 then null else {} end", alias,
                       position(notKnown, fmt::format("|{}|", column.viewName)), value);
  }

  std::string position(const std::string& value, const std::string& what) const {
    return fmt::format("{}({}, {})", dialect_.isPostgres() ? "strpos" : "instr", value, quotedText(what));
  }

  std::string number(const std::string& value) const {
    if (dialect_.isPostgres())
      return fmt::format("case when {0} ~ '^-?[0-9]{{1,18}}$' then {0}::bigint end", value);
    return fmt::format(
        "case when {1} <> '' and length({1}) <= 18 and length({0}) - length({1}) <= 1 "
        "and {1} not glob '*[^0-9]*' then cast({0} as integer) end",
        value, fmt::format("ltrim({}, '-')", value));
  }

  std::string typed(const std::string& value, Type type) const {
    if (type == Type::kInteger) return number(value);
    if (type == Type::kBoolean) {
      return fmt::format(
          "case when {0} in ('Yes', 'True', 'Enabled', 'Allowed', 'Granted') then true "
          "when {0} in ('No', 'False', 'Disabled', 'Prohibited', 'Denied') then false end",
          value);
    }
    if (type != Type::kTime) return fmt::format("coalesce({}, '')", value);
    if (dialect_.isPostgres()) {
      return fmt::format(
          "case when {0} ~ '^[0-9]{{4}}-[0-9]{{2}}-[0-9]{{2}}T[0-9:.]{{12}}Z$' then {0}::timestamptz end",
          value);
    }
    return fmt::format("case when {0} glob '[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]T*Z' then {0} end",
                       value);
  }

  const Dialect& dialect_;
  const ViewPart& part_;
  View view_;
  std::string columns_, from_;
};

}  // namespace

std::vector<View> views(const Dialect& dialect, const std::string& selected) {
  std::vector<View> all;
  for (const ViewPart& part : kParts) {
    View view = PartMaker(dialect, part, selected).take();
    if (!all.empty() && all.back().name == view.name) {
      all.back().select += " union all " + view.select;
    } else {
      all.push_back(std::move(view));
    }
  }
  return all;
}

std::string selectCurrent() {
  return "select current_collection as collection_id, name as server from servers "
         "where current_collection is not null";
}

std::string withViews(const Dialect& dialect, const std::string& selected, const std::string& sql) {
  const std::string lowered = folded(sql);
  std::string text = fmt::format("with selected(collection_id, server) as ({})", selected);
  for (const View& view : views(dialect, std::string(kSelectedView))) {
    if (lowered.find(view.name) == std::string::npos) continue;
    text += fmt::format(", {} as not materialized ({})", view.name, view.select);
  }
  return text + " " + sql;
}

}  // namespace inventory
