#include "inventory/postgres/session.h"

#include <fmt/core.h>

#include <array>
#include <bit>
#include <utility>

namespace inventory::postgres {
namespace {

// The signature of COPY's binary format, no flags, no extension ("COPY, Binary Format" in PostgreSQL's
// documentation).
constexpr std::string_view kCopyHead("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19);
constexpr std::size_t kCopyPiece = std::size_t{256} * 1024;

class PostgresCursor : public Cursor {
 public:
  PostgresCursor(Connection& connection, const std::string& sql, const Parameters& parameters)
      : connection_(connection) {
    connection_.start(sql, parameters);
    row_ = receive();
    for (int column = 0; column < row_.columns(); ++column) types_.push_back(PQftype(row_.raw(), column));
    spelled_.resize(types_.size());
  }
  ~PostgresCursor() override { connection_.drain(); }
  PostgresCursor(const PostgresCursor&) = delete;
  PostgresCursor& operator=(const PostgresCursor&) = delete;

  bool next() override {
    if (!std::exchange(isAtStart_, false) && row_.status() == PGRES_SINGLE_TUPLE) row_ = receive();
    return row_.status() == PGRES_SINGLE_TUPLE;
  }

  Cell cell(std::size_t column) override {
    constexpr Oid kBoolean = 16, kDouble = 701, kTime = 1184;
    const Cell text = row_.text(0, static_cast<int>(column));
    if (text && types_[column] == kBoolean) return *text == "t" ? "1" : "0";
    if (text && types_[column] == kTime) return spelled_[column] = spelledTime(std::string(*text));
    if (!text || types_[column] != kDouble || text->find_first_of(".nN") != text->npos) return text;
    std::string& spelled = spelled_[column] = *text;
    spelled.insert(std::min(spelled.find('e'), spelled.size()), ".0");
    return spelled;
  }

  std::size_t columnCount() const override { return types_.size(); }

 private:
  // Converts the server's format 2026-01-31 12:00:00.5+00 to that of the tables.
  static std::string spelledTime(std::string time) {
    time.resize(time.find('+'));
    time[10] = 'T';
    if (time.find('.') == std::string::npos) time += '.';
    time.resize(23, '0');
    return time + "Z";
  }

  ResultSet receive() {
    ResultSet row = connection_.receive();
    if (row.status() == PGRES_SINGLE_TUPLE) return row;
    connection_.drain();
    if (row.status() != PGRES_TUPLES_OK && row.status() != PGRES_COMMAND_OK) connection_.fail(row.raw());
    return row;
  }

  Connection& connection_;
  ResultSet row_;
  std::vector<Oid> types_;
  std::vector<std::string> spelled_;  // reals and times of the row, by column
  bool isAtStart_ = true;
};

class PostgresInserter : public Inserter {
 public:
  PostgresInserter(Connection& connection, const std::string& sql, std::size_t columns)
      : connection_(connection), columns_(columns), buffer_(kCopyHead) {
    connection_.run(sql);
  }
  ~PostgresInserter() override { connection_.drain(); }
  PostgresInserter(const PostgresInserter&) = delete;
  PostgresInserter& operator=(const PostgresInserter&) = delete;

  void text(Cell value) override {
    if (!value) return null();
    beginValue(value->size());
    buffer_.append(*value);
  }
  void integer(std::int64_t value) override {
    beginValue(sizeof value);
    append(static_cast<std::uint64_t>(value));
  }
  void real(double value) override {
    beginValue(sizeof value);
    append(std::bit_cast<std::uint64_t>(value));
  }
  void boolean(bool value) override {
    beginValue(1);
    buffer_ += value ? '\1' : '\0';
  }
  void null() override { beginValue(0xFFFFFFFF); }

  void endRow() override {
    isInRow_ = false;
    if (buffer_.size() >= kCopyPiece) flush();
  }

  void finish() override {
    append(std::uint16_t{0xFFFF});
    flush();
    connection_.endCopy(nullptr);
  }

 private:
  void beginValue(std::size_t size) {
    if (!std::exchange(isInRow_, true)) append(static_cast<std::uint16_t>(columns_));
    append(static_cast<std::uint32_t>(size));
  }

  template <typename Number>
  void append(Number value) {
    std::array<char, sizeof value> bytes;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
      bytes[at] = static_cast<char>((value >> (8 * (bytes.size() - 1 - at))) & 0xFF);
    }
    buffer_.append(bytes.data(), bytes.size());
  }

  void flush() {
    connection_.sendCopy(buffer_);
    buffer_.clear();
  }

  Connection& connection_;
  const std::size_t columns_;
  std::string buffer_;
  bool isInRow_ = false;
};

class PostgresTransaction : public Transaction {
 public:
  PostgresTransaction(const Dialect& dialect, std::shared_ptr<Connection> connection)
      : dialect_(dialect), connection_(std::move(connection)) {}
  PostgresTransaction(const PostgresTransaction&) = delete;
  PostgresTransaction& operator=(const PostgresTransaction&) = delete;

  const Dialect& dialect() const override { return dialect_; }

  ~PostgresTransaction() override {
    if (!isOpen_) return;
    connection_->drain();
    try {
      if (!connection_->isLost()) connection_->run("rollback");
    } catch (const std::exception&) {
      // The connection is then not idle and is closed with its transaction.
    }
  }

  void execute(const std::string& sql, const Parameters& parameters) override {
    connection_->run(sql, parameters);
  }

  std::unique_ptr<Cursor> query(const std::string& sql, const Parameters& parameters) override {
    return std::make_unique<PostgresCursor>(*connection_, sql, parameters);
  }

  void limitQueries(std::chrono::milliseconds limit) override {
    connection_->run(fmt::format("set local statement_timeout = {}", limit.count()));
  }

  std::unique_ptr<Inserter> insertInto(std::string_view table,
                                       std::span<const InsertColumn> columns) override {
    return std::make_unique<PostgresInserter>(
        *connection_,
        fmt::format("copy {} ({}) from stdin (format binary)", quotedName(table), namesOf(columns)),
        columns.size());
  }

  void commit() override {
    const ResultSet result = connection_->run("commit");
    isOpen_ = false;
    if (std::string_view(PQcmdStatus(result.raw())) != "COMMIT")
      connection_->target().refuse("the server rolled the transaction back");
  }

 private:
  const Dialect& dialect_;
  const std::shared_ptr<Connection> connection_;
  bool isOpen_ = true;
};

}  // namespace

std::unique_ptr<Transaction> beginTransaction(const Dialect& dialect, std::shared_ptr<Connection> connection,
                                              const std::string& sql) {
  connection->run(sql);
  return std::make_unique<PostgresTransaction>(dialect, std::move(connection));
}

}  // namespace inventory::postgres
