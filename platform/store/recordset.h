// A recordset with the interface of ADO: the rows of a query, and new rows.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "automation/object.h"
#include "platform/store/connection.h"

namespace platform::store {

// Properties: CursorLocation, CursorType, LockType, ActiveConnection (a connection object), State, EOF, BOF,
// RecordCount, Collect(column). Methods: Open(sql), AddNew(), Update(), CancelUpdate(), MoveNext(), Close().
//
// The rows are those at the time of opening. After a save, the saved row is the current row. Columns are
// addressed by name or by index from 0. Saved rows are read-only.
class Recordset : public automation::Object {
 public:
  Recordset();

  automation::Variant read(automation::TextView member, automation::Arguments arguments) override;
  void write(automation::TextView member, automation::Arguments arguments,
             const automation::Variant& value) override;
  automation::Variant call(automation::TextView member, automation::Arguments arguments) override;
  std::unique_ptr<automation::Walk> children() override;

 private:
  // The current position: a row of the query, the end, or the row saved last.
  enum class Place { kFetched, kEnd, kSaved };

  // A value: a range of Values::text.
  struct Cell {
    std::size_t begin = 0;
    std::size_t size = 0;
    bool isNull = true;
  };
  struct Values {
    std::string text;      // may be larger than `used`
    std::size_t used = 0;  // bytes of the text
    std::vector<Cell> cells;

    std::string_view at(const Cell& cell) const { return {text.data() + cell.begin, cell.size}; }
    void append(automation::TextView value);
    void clear() {
      used = 0;
      cells.clear();
    }
  };

  bool isOpen() const;
  Session& requireOpen() const;
  void requireClosed() const;
  void requireRow() const;
  std::size_t columnOf(const automation::Variant& column);

  void open(const automation::Variant& sql);
  void fetch(Session& session, Query& query);
  void close();
  void addNew();
  void update();
  void cancelUpdate();
  void moveNext();
  void save(Session& session);
  std::int32_t recordCount() const;
  automation::Variant valueAt(std::size_t column) const;
  void setValue(std::size_t column, const automation::Variant& value);

  std::int32_t cursorLocation_;
  std::int32_t cursorType_;
  std::int32_t lockType_;
  std::shared_ptr<Connection> connection_;
  std::uint64_t opening_ = 0;
  bool opened_ = false;

  std::shared_ptr<const Columns> columns_;
  std::size_t expectedColumn_ = 0;

  Values fetched_;  // the rows of the query, concatenated
  std::size_t fetchedCount_ = 0;
  std::size_t fetchedAt_ = 0;
  Place place_ = Place::kEnd;

  bool pending_ = false;
  Values pendingRow_;
  Values savedRow_;
  std::size_t addedCount_ = 0;
  sqlite::Insertion* insertion_ = nullptr;
};

}  // namespace platform::store
