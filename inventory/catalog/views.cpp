#include "inventory/catalog/views.h"

#include <utility>

namespace inventory {
namespace {

// The objects' own lists, whose rows a view may lack.
struct IncompleteColumn {
  const char* name;
  const char* view;
  std::string_view meaning;
};

// The id of an object.
constexpr const char* kId = "(o.collection_id * 4294967296 + o.number)";

class ViewMaker {
 public:
  ViewMaker(const Dialect& dialect, std::string selected)
      : dialect_(dialect), selected_(std::move(selected)) {}

  std::vector<View> all() const {
    return {ftpSite(),     ftpDirectory(), ftpAccess(),  appPool(), webExtension(),
            application(), object(),       collection(), problem()};
  }

 private:
  // The columns and joins of one view, as they come together.
  struct Parts {
    View view;
    std::string columns;
    std::string from;
    int joins = 0;
  };

  static constexpr std::string_view kAccessIncomplete = "Whether rows in ftp_access may be missing";

  View ftpSite() const {
    Parts parts = begin("ftp_site", "FTP sites", ObjectKind::kSite);
    add(parts, "server", "s.server", Type::kText, "Server that has the site");
    add(parts, "identifier", number("o.key"), Type::kInteger, "Identifier of the site");
    addTables(parts, ObjectKind::kSite);
    addIncomplete(parts, {"access_incomplete", "ftp_access", kAccessIncomplete});
    addIncomplete(
        parts, {"directories_incomplete", "ftp_directory", "Whether rows in ftp_directory may be missing"});
    return end(std::move(parts));
  }

  View ftpDirectory() const {
    Parts parts = begin("ftp_directory", "Virtual directories of FTP sites", ObjectKind::kDirectory);
    add(parts, "server", "s.server", Type::kText, "Server that has the directory");
    addTables(parts, ObjectKind::kDirectory);
    addIncomplete(parts, {"access_incomplete", "ftp_access", kAccessIncomplete});
    return end(std::move(parts));
  }

  View appPool() const {
    Parts parts = begin("app_pool", "Application pools", ObjectKind::kPool);
    add(parts, "server", "s.server", Type::kText, "Server that has the pool");
    add(parts, "name", "o.key", Type::kText, "Name of the application pool");
    addTables(parts, ObjectKind::kPool);
    addIncomplete(parts,
                  {"applications_incomplete", "application", "Whether rows in application may be missing"});
    return end(std::move(parts));
  }

  View webExtension() const {
    Parts parts =
        begin("web_extension", "Web service extensions; a row for each file", ObjectKind::kExtension);
    const Table& table = tables()[inventory::table("tblWSExtension")];
    parts.from += " join " + dialect_.table(table.name) + " t on t.id = " + kId;
    addColumns(parts, table, "t", ObjectKind::kExtension, true);
    return end(std::move(parts));
  }

  View application() const {
    Parts parts = begin("application", "Web sites and virtual directories that application pools serve",
                        ObjectKind::kApplication);
    const Table& table = tables()[inventory::table("tblAppliedObject")];
    parts.from += " join " + dialect_.table(table.name) + " t on t.id = " + kId;
    addColumns(parts, table, "t", ObjectKind::kApplication, true);
    add(parts, "pool_id", "o.collection_id * 4294967296 + o.parent", Type::kInteger, "Object of the pool");
    return end(std::move(parts));
  }

  // A row for each address, and one for an object that has none.
  View ftpAccess() const {
    const Parts ofSites =
        accessOf(ObjectKind::kSite, tables()[inventory::table("tblDirectorySecuritySetting")]);
    const Parts ofDirectories =
        accessOf(ObjectKind::kDirectory, tables()[inventory::table("tblvirtualDirSecurity")]);
    View view = ofSites.view;
    view.select = "select " + ofSites.columns + ofSites.from + " union all select " + ofDirectories.columns +
                  ofDirectories.from;
    return view;
  }

  Parts accessOf(ObjectKind kind, const Table& table) const {
    Parts parts =
        begin("ftp_access", "Addresses that may reach FTP sites and directories; a row for each", kind);
    parts.from += " join " + dialect_.table(table.name) + " t on t.id = " + kId;
    const bool isSite = kind == ObjectKind::kSite;
    const std::string none = dialect_.isPostgres() ? "null::text" : "null";
    add(parts, "server", "s.server", Type::kText, "Server that has the site");
    add(parts, "site_identifier", number(isSite ? "o.key" : cell("t", kSiteColumn)), Type::kInteger,
        "Identifier of the site");
    add(parts, "parent", isSite ? none : cell("t", kPathColumn), Type::kText,
        "Metabase path of the directory above; null for a site");
    add(parts, "name", isSite ? none : cell("t", kDirectoryColumn), Type::kText,
        "Name of the directory; null for a site");
    const Column& all = table.columns[table.find("All computer access")];
    const std::string granted = cell("t", "Granted IP Address (Subnet mask)"),
                      denied = cell("t", "Denied IP Address (Subnet mask)");
    const std::string entry = "coalesce(nullif(" + granted + ", ''), " + denied + ", '')";
    const std::string bracket = position(entry, " (");
    add(parts, all.viewName, known("t", all, granting(cell("t", all.name))), Type::kBoolean, all.meaning,
        all.properties);
    add(parts, "is_granted",
        known("t", all, "case when " + granted + " <> '' then true when " + denied + " <> '' then false end"),
        Type::kBoolean, "Whether the address is granted or denied access; null where there is no address",
        all.properties);
    add(parts, "address",
        known("t", all,
              "case when " + bracket + " > 0 then substr(" + entry + ", 1, " + bracket + " - 1) else " +
                  entry + " end"),
        Type::kText, "Address; empty for an object without any", all.properties);
    add(parts, "mask",
        known("t", all,
              "case when " + bracket + " > 0 then replace(substr(" + entry + ", " + bracket +
                  " + 2), ')', '') else '' end"),
        Type::kText, "Subnet mask; empty for a single address", all.properties);
    add(parts, "object_id", kId, Type::kInteger, "Object of the site or directory");
    return parts;
  }

  View object() const {
    Parts parts;
    parts.view.name = "object";
    parts.view.meaning = "What the rows are about, with its place in the metabase and in the file";
    parts.from = " from " + selected_ + " s join " + dialect_.table("objects") +
                 " o on o.collection_id = s.collection_id";
    std::string kinds = "case o.kind", nodes = "case o.kind";
    for (const ObjectKind kind : {ObjectKind::kSite, ObjectKind::kDirectory, ObjectKind::kPool,
                                  ObjectKind::kExtension, ObjectKind::kApplication}) {
      const std::string when = " when " + std::to_string(static_cast<int>(kind)) + " then ";
      kinds += when + quotedText(wordFor(kind));
      if (const std::string root(nodeRootOf(kind)); !root.empty())
        nodes += when + quotedText("/LM/" + root) + " || o.key";
    }
    add(parts, "server", "s.server", Type::kText, "Server that has the object");
    add(parts, "kind", kinds + " end", Type::kText, "site, directory, pool, extension or application");
    add(parts, "key", "o.key", Type::kText, "Identifier, path below the service, or name");
    add(parts, "node", nodes + " end", Type::kText, "Metabase path; null for an extension or application");
    add(parts, "line", "o.line", Type::kInteger, "Line of the file; null where it is not known");
    add(parts, "incomplete", "o.incomplete", Type::kText,
        "Views that may lack rows of it, as |view|; null for none");
    add(parts, "parent_id", "o.collection_id * 4294967296 + o.parent", Type::kInteger,
        "Object that it belongs to");
    return end(std::move(parts));
  }

  View collection() const {
    Parts parts;
    parts.view.name = "collection";
    parts.view.meaning = "The collections that the views show";
    parts.from = " from " + selected_ + " s join " + dialect_.table("Collections") +
                 " t on t.collection_id = s.collection_id";
    add(parts, "server", "s.server", Type::kText, "Server that was collected");
    addOwn(parts, collectionsTable());
    return end(std::move(parts));
  }

  View problem() const {
    Parts parts;
    parts.view.name = "problem";
    parts.view.meaning = "What could not be read, and what was noted";
    parts.from = " from " + selected_ + " s join " + dialect_.table("Problems") +
                 " t on t.collection_id = s.collection_id";
    add(parts, "server", "s.server", Type::kText, "Server that was collected");
    add(parts, "is_note", "t.\"Kind\" = 'note'", Type::kBoolean, "Whether it is a note and no problem");
    addOwn(parts, problemsTable());
    return end(std::move(parts));
  }

  Parts begin(const char* name, std::string_view meaning, ObjectKind kind) const {
    Parts parts;
    parts.view.name = name;
    parts.view.meaning = meaning;
    parts.from =
        " from " + selected_ + " s join " + dialect_.table("objects") +
        " o on o.collection_id = s.collection_id and o.kind = " + std::to_string(static_cast<int>(kind));
    return parts;
  }

  static View end(Parts parts) {
    const bool isOfObjects = parts.from.find(" o on o.") != std::string::npos;
    if (isOfObjects) add(parts, "object_id", kId, Type::kInteger, "Object that the row is about");
    parts.view.select = "select " + parts.columns + parts.from;
    return std::move(parts.view);
  }

  static void add(Parts& parts, std::string_view name, const std::string& sql, Type type,
                  std::string_view meaning, std::string_view properties = {}) {
    parts.columns += (parts.columns.empty() ? "" : ", ") + sql + " as " + quotedName(name);
    parts.view.columns.push_back({std::string(name), type, meaning, properties, name.ends_with("_id")});
  }

  void addIncomplete(Parts& parts, const IncompleteColumn& column) const {
    add(parts, column.name,
        position("coalesce(o.incomplete, '')", "|" + std::string(column.view) + "|") + " > 0", Type::kBoolean,
        column.meaning);
  }

  // The columns of all tables about a kind, joined by the object's id. Of a table with several rows for an
  // object what it has once comes from the first one.
  void addTables(Parts& parts, ObjectKind kind) const {
    for (const Table& table : tables()) {
      if (!table.isAbout(kind)) continue;
      const std::string alias = "t" + std::to_string(++parts.joins);
      parts.from += " left join " + dialect_.table(table.name) + " " + alias + " on " + alias +
                    ".id = " + kId + (table.hasSeveralRows ? " and " + alias + ".number = 1" : "");
      addColumns(parts, table, alias, kind, parts.joins == 1);
    }
  }

  // `withIdentity`: also the columns that say what the row is about, but for those that are there already.
  void addColumns(Parts& parts, const Table& table, const std::string& alias, ObjectKind kind,
                  bool withIdentity) const {
    for (const Column& column : table.columns) {
      if (column.viewName.empty() || (column.onlyOf != ObjectKind::kNone && column.onlyOf != kind)) continue;
      if (column.role == Role::kIdentity && !withIdentity) continue;
      bool isThere = false;
      for (const ViewColumn& each : parts.view.columns) isThere = isThere || each.name == column.viewName;
      if (isThere) continue;
      if (column.name == kServerColumn) {
        add(parts, "server", "s.server", Type::kText, column.meaning);
        continue;
      }
      const bool isList =
          column.role == Role::kListed && table.hasSeveralRows && kind != ObjectKind::kExtension;
      const std::string value =
          isList ? listOf(table, column) : typed(cell(alias, column.name), column.viewType);
      const std::string_view properties =
          column.properties.size() > 1 ? column.properties : std::string_view();
      add(parts, column.viewName, known(alias, column, value), column.viewType, column.meaning, properties);
    }
  }

  void addOwn(Parts& parts, const Table& table) const {
    for (const Column& column : table.columns) {
      if (column.viewName.empty()) continue;
      const std::string value = cell("t", column.name);
      const bool isText = column.type == Type::kText && column.viewType == Type::kText;
      add(parts, column.viewName,
          column.type == Type::kText ? (isText ? value : typed(value, column.viewType)) : value,
          column.viewType, column.meaning);
      parts.view.columns.back().isBookkeeping = column.role == Role::kBookkeeping;
    }
  }

  // All values of an object in a column, divided by commas.
  std::string listOf(const Table& table, const Column& column) const {
    const std::string value = "nullif(x." + quotedName(column.name) + ", '')";
    const std::string from = " from " + dialect_.table(table.name) + " x where x.id = " + kId;
    return dialect_.isPostgres()
               ? "coalesce((select string_agg(" + value + ", ', ' order by x.number)" + from + "), '')"
               : "coalesce((select group_concat(v, ', ') from (select " + value + " as v" + from +
                     " order by x.number)), '')";
  }

  static std::string cell(std::string_view alias, std::string_view column) {
    return std::string(alias) + "." + quotedName(column);
  }

  // Null where the row is missing, or the cell isn't known.
  std::string known(const std::string& alias, const Column& column, const std::string& value) const {
    const std::string mark = "|" + std::string(column.viewName) + "|";
    return "case when " + alias + ".id is null or " +
           position("coalesce(" + alias + ".not_known, '')", mark) + " > 0 then null else " + value + " end";
  }

  static std::string granting(const std::string& value) {
    return "case " + value + " when 'Granted' then true when 'Denied' then false end";
  }

  std::string position(const std::string& value, const std::string& what) const {
    return (dialect_.isPostgres() ? "strpos(" : "instr(") + value + ", " + quotedText(what) + ")";
  }

  std::string number(const std::string& value) const {
    if (dialect_.isPostgres())
      return "case when " + value + " ~ '^-?[0-9]{1,18}$' then " + value + "::bigint end";
    const std::string digits = "ltrim(" + value + ", '-')";
    return "case when " + digits + " <> '' and length(" + digits + ") <= 18 and length(" + value +
           ") - length(" + digits + ") <= 1 and " + digits + " not glob '*[^0-9]*' then cast(" + value +
           " as integer) end";
  }

  std::string typed(const std::string& value, Type type) const {
    switch (type) {
      case Type::kText:
        break;
      case Type::kInteger:
        return number(value);
      case Type::kBoolean:
        return "case when " + value + " in ('Yes', 'True', 'Enabled', 'Allowed', 'Granted') then true when " +
               value + " in ('No', 'False', 'Disabled', 'Prohibited', 'Denied') then false end";
      case Type::kTime:
        return dialect_.isPostgres()
                   ? "case when " + value + " ~ '^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:.]{12}Z$' then " + value +
                         "::timestamptz end"
                   : "case when " + value + " glob '[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]T*Z' then " +
                         value + " end";
      case Type::kReal:
        return value;
    }
    return "coalesce(" + value + ", '')";
  }

  const Dialect& dialect_;
  const std::string selected_;
};

}  // namespace

std::vector<View> views(const Dialect& dialect, const std::string& selected) {
  return ViewMaker(dialect, selected).all();
}

std::string selectCurrent(const Dialect& dialect) {
  return "select current_collection as collection_id, name as server from " + dialect.table("servers") +
         " where current_collection is not null";
}

std::string withViews(const Dialect& dialect, const std::string& selected, const std::string& sql) {
  std::string text = "with selected(collection_id, server) as (" + selected + ")";
  for (const View& view : views(dialect, std::string(kSelectedView))) {
    if (sql.find(view.name) == sql.npos) continue;
    text += ", " + view.name + " as not materialized (" + view.select + ")";
  }
  return text + " " + sql;
}

}  // namespace inventory
