#include "sqlite/feed.h"

namespace sqlite {

// SQLite's side of it ("The Virtual Table Mechanism Of SQLite").
struct FeedModule {
  struct Table : sqlite3_vtab {
    Feed* feed = nullptr;
  };
  struct Cursor : sqlite3_vtab_cursor {
    bool atEnd = true;
    sqlite3_int64 row = 0;
  };

  static int connect(sqlite3* db, void* feed, int, const char* const*, sqlite3_vtab** table, char**) {
    std::string sql = "create table feed (c0";
    for (int column = 1; column < Feed::kMostColumns; ++column) sql += ", c" + std::to_string(column);
    const int result = sqlite3_declare_vtab(db, (sql + ")").c_str());
    if (result != SQLITE_OK) return result;
    auto* const made = new Table{};
    made->feed = static_cast<Feed*>(feed);
    *table = made;
    return SQLITE_OK;
  }

  static int disconnect(sqlite3_vtab* table) {
    delete static_cast<Table*>(table);
    return SQLITE_OK;
  }

  static int bestIndex(sqlite3_vtab*, sqlite3_index_info*) { return SQLITE_OK; }

  static int open(sqlite3_vtab*, sqlite3_vtab_cursor** cursor) {
    *cursor = new Cursor{};
    return SQLITE_OK;
  }

  static int close(sqlite3_vtab_cursor* cursor) {
    delete static_cast<Cursor*>(cursor);
    return SQLITE_OK;
  }

  static Feed& feedOf(sqlite3_vtab_cursor* cursor) { return *static_cast<Table*>(cursor->pVtab)->feed; }

  static int filter(sqlite3_vtab_cursor* cursor, int, const char*, int, sqlite3_value**) {
    return next(cursor);
  }

  static int next(sqlite3_vtab_cursor* cursor) {
    Feed& feed = feedOf(cursor);
    auto& place = *static_cast<Cursor*>(cursor);
    try {
      place.atEnd = feed.source_ == nullptr || !feed.source_->next();
      ++place.row;
      return SQLITE_OK;
    } catch (...) {
      feed.thrown_ = std::current_exception();
      return SQLITE_ERROR;
    }
  }

  static int eof(sqlite3_vtab_cursor* cursor) { return static_cast<Cursor*>(cursor)->atEnd ? 1 : 0; }

  static int column(sqlite3_vtab_cursor* cursor, sqlite3_context* context, int column) {
    Feed& feed = feedOf(cursor);
    try {
      const auto text = feed.source_->cell(column);
      if (!text) {
        sqlite3_result_null(context);
      } else {
        // The row is made of it before the source goes on.
        sqlite3_result_text64(context, text->data() != nullptr ? text->data() : "", text->size(),
                              SQLITE_STATIC, SQLITE_UTF8);
      }
      return SQLITE_OK;
    } catch (...) {
      feed.thrown_ = std::current_exception();
      return SQLITE_ERROR;
    }
  }

  static int rowid(sqlite3_vtab_cursor* cursor, sqlite3_int64* row) {
    *row = static_cast<Cursor*>(cursor)->row;
    return SQLITE_OK;
  }

  // Without xCreate the table is there by its name alone.
  static const sqlite3_module* module() {
    static const sqlite3_module made = [] {
      sqlite3_module methods{};
      methods.xConnect = connect;
      methods.xDisconnect = disconnect;
      methods.xBestIndex = bestIndex;
      methods.xOpen = open;
      methods.xClose = close;
      methods.xFilter = filter;
      methods.xNext = next;
      methods.xEof = eof;
      methods.xColumn = column;
      methods.xRowid = rowid;
      return methods;
    }();
    return &made;
  }
};

Feed::Feed(Database& database) {
  const int result = sqlite3_create_module_v2(database.raw(), "feed", FeedModule::module(), this, nullptr);
  if (result != SQLITE_OK) database.fail(result);
}

void Feed::run(Statement& statement, FeedSource& source) {
  source_ = &source;
  thrown_ = nullptr;
  try {
    statement.run();
    source_ = nullptr;
  } catch (...) {
    source_ = nullptr;
    if (thrown_ != nullptr) std::rethrow_exception(thrown_);
    throw;
  }
}

}  // namespace sqlite
