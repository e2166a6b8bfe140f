// Rows that a program hands to SQLite while a statement runs.
#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "sqlite/database.h"

namespace sqlite {

// Where the rows come from. Members may throw.
class FeedSource {
 public:
  virtual ~FeedSource() = default;

  // Goes to the next row, the first one at first. False when there is none left.
  virtual bool next() = 0;

  // A value of the row; nothing for null. Good until the next row.
  virtual std::optional<std::string_view> cell(int column) = 0;
};

// The table "feed" of a database, with the columns c0, c1 and so on, which gives each row of a source once:
// one statement moves them all. Must live as long as the database.
class Feed {
 public:
  static constexpr int kMostColumns = 32;

  explicit Feed(Database& database);
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  // Runs a statement that reads the table. Throws what the source has thrown, else Error.
  void run(Statement& statement, FeedSource& source);

 private:
  friend struct FeedModule;

  FeedSource* source_ = nullptr;
  std::exception_ptr thrown_;
};

}  // namespace sqlite
