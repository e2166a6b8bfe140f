#include "platform/store/recordset.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "automation/failure.h"
#include "automation/variant.h"
#include "platform/store/members.h"

namespace platform::store {

using automation::Arguments;
using automation::Failure;
using automation::Text;
using automation::TextView;
using automation::Variant;

namespace {

constexpr TextView kSource = u"ADODB.Recordset";

// ADO's constants (ADO API reference, "CursorLocationEnum", "CursorTypeEnum", "LockTypeEnum").
constexpr std::int32_t kUseServer = 2;
constexpr std::int32_t kUseClient = 3;
constexpr std::int32_t kOpenForwardOnly = 0;
constexpr std::int32_t kOpenDynamic = 2;
constexpr std::int32_t kOpenStatic = 3;
constexpr std::int32_t kLockReadOnly = 1;
constexpr std::int32_t kLockBatchOptimistic = 4;

// Bytes by which the buffer of a row's values grows.
constexpr std::size_t kUsualRow = 192;

enum class Property {
  kCollect,
  kState,
  kEof,
  kRecordCount,
  kActiveConnection,
  kCursorLocation,
  kLockType,
  kCursorType,
  kBof,
};
constexpr MemberName<Property> kProperties[] = {
    {u"Collect", Property::kCollect},
    {u"State", Property::kState},
    {u"EOF", Property::kEof},
    {u"RecordCount", Property::kRecordCount},
    {u"ActiveConnection", Property::kActiveConnection},
    {u"CursorLocation", Property::kCursorLocation},
    {u"LockType", Property::kLockType},
    {u"CursorType", Property::kCursorType},
    {u"BOF", Property::kBof},
};

enum class Method { kAddNew, kUpdate, kOpen, kClose, kCancelUpdate, kMoveNext };
constexpr MemberName<Method> kMethods[] = {
    {u"AddNew", Method::kAddNew},
    {u"Update", Method::kUpdate},
    {u"Open", Method::kOpen},
    {u"Close", Method::kClose},
    {u"CancelUpdate", Method::kCancelUpdate},
    {u"MoveNext", Method::kMoveNext},
};

[[noreturn]] void fail(std::int32_t code, Text description) {
  throw Failure(code, std::move(description), Text(kSource));
}

// Converts and range-checks the value of a setting.
std::int32_t settingWithin(const Variant& value, std::int32_t least, std::int32_t most, TextView member) {
  const std::int32_t setting = automation::toInt32(value);
  if (setting < least || setting > most) {
    fail(number::kWrongType,
         u"value out of range for " + Text(member) + u": " + automation::decimalText(setting));
  }
  return setting;
}

// Resets a cached statement at the end of the scope.
class Reset {
 public:
  explicit Reset(sqlite::Statement& statement) : statement_(statement) {}
  Reset(const Reset&) = delete;
  Reset& operator=(const Reset&) = delete;
  ~Reset() { statement_.reset(); }

 private:
  sqlite::Statement& statement_;
};

}  // namespace

// Fast path for ASCII, four units at a time.
void Recordset::Values::append(TextView value) {
  if (text.size() - used < value.size()) text.resize(used + value.size() + kUsualRow);
  char* out = text.data() + used;
  const char16_t* in = value.data();
  const char16_t* const end = in + value.size();
  std::uint64_t all = 0;
  for (; end - in >= 4; in += 4, out += 4) {
    std::uint64_t units;
    std::memcpy(&units, in, sizeof units);
    all |= units;
    units = (units | units >> 8) & 0x0000FFFF0000FFFF;
    const auto bytes = static_cast<std::uint32_t>(units | units >> 16);
    std::memcpy(out, &bytes, sizeof bytes);
  }
  for (; in != end; ++in) {
    all |= *in;
    *out++ = static_cast<char>(*in);
  }
  if ((all & 0xFF80FF80FF80FF80) == 0) {
    used += value.size();
    return;
  }
  text.resize(used);
  text += automation::toUtf8(value);
  used = text.size();
}

Recordset::Recordset()
    : cursorLocation_(kUseServer), cursorType_(kOpenForwardOnly), lockType_(kLockReadOnly) {}

Variant Recordset::read(TextView member, Arguments arguments) {
  const Property property = findMember(kProperties, member, kSource);
  automation::requireArguments(member, arguments, property == Property::kCollect ? 1 : 0, kSource);
  switch (property) {
    case Property::kCollect: {
      requireOpen();
      const std::size_t column = columnOf(arguments[0]);
      requireRow();
      return valueAt(column);
    }
    case Property::kState:
      return std::int32_t{isOpen()};
    case Property::kEof:
      requireOpen();
      return !pending_ && place_ == Place::kEnd;
    case Property::kBof:
      requireOpen();
      return !pending_ && fetchedCount_ + addedCount_ == 0;
    case Property::kRecordCount:
      requireOpen();
      return recordCount();
    case Property::kActiveConnection:
      return automation::ObjectRef(connection_);
    case Property::kCursorLocation:
      return cursorLocation_;
    case Property::kLockType:
      return lockType_;
    case Property::kCursorType:
      return cursorType_;
  }
  return {};
}

void Recordset::write(TextView member, Arguments arguments, const Variant& value) {
  const Property property = findMember(kProperties, member, kSource);
  automation::requireArguments(member, arguments, property == Property::kCollect ? 1 : 0, kSource);
  switch (property) {
    case Property::kCollect:
      requireOpen();
      setValue(columnOf(arguments[0]), value);
      return;
    case Property::kActiveConnection: {
      requireClosed();
      const automation::ObjectRef object = automation::toObject(value);
      auto connection = std::dynamic_pointer_cast<Connection>(object);
      if (object != nullptr && connection == nullptr) {
        fail(number::kWrongType, u"ActiveConnection must be a connection of this store");
      }
      connection_ = std::move(connection);
      return;
    }
    case Property::kCursorLocation:
      requireClosed();
      cursorLocation_ = settingWithin(value, kUseServer, kUseClient, member);
      return;
    case Property::kLockType:
      requireClosed();
      lockType_ = settingWithin(value, kLockReadOnly, kLockBatchOptimistic, member);
      return;
    case Property::kCursorType:
      requireClosed();
      cursorType_ = settingWithin(value, kOpenForwardOnly, kOpenStatic, member);
      return;
    case Property::kState:
    case Property::kEof:
    case Property::kBof:
    case Property::kRecordCount:
      break;
  }
  automation::failMember(member, kSource);
}

Variant Recordset::call(TextView member, Arguments arguments) {
  const Method method = findMember(kMethods, member, kSource);
  automation::requireArguments(member, arguments, method == Method::kOpen ? 1 : 0, kSource);
  switch (method) {
    case Method::kAddNew:
      addNew();
      break;
    case Method::kUpdate:
      update();
      break;
    case Method::kOpen:
      open(arguments[0]);
      break;
    case Method::kClose:
      close();
      break;
    case Method::kCancelUpdate:
      cancelUpdate();
      break;
    case Method::kMoveNext:
      moveNext();
      break;
  }
  return {};
}

std::unique_ptr<automation::Walk> Recordset::children() {
  automation::failMember(u"(children)", kSource);
}

bool Recordset::isOpen() const {
  return opened_ && connection_->opening() == opening_;
}

Session& Recordset::requireOpen() const {
  if (!isOpen()) fail(number::kObjectClosed, u"the recordset is closed");
  return *connection_->session();
}

void Recordset::requireClosed() const {
  if (isOpen()) fail(number::kObjectOpen, u"the recordset is open");
}

void Recordset::requireRow() const {
  if (!pending_ && place_ == Place::kEnd) fail(number::kNoCurrentRow, u"the recordset has no current row");
}

// Columns are mostly written in the table's order, so the next one is tried first.
std::size_t Recordset::columnOf(const Variant& column) {
  const std::vector<Text>& names = columns_->names;
  if (const Text* name = column.as<Text>()) {
    if (expectedColumn_ < names.size() && isNamed(names[expectedColumn_], *name)) return expectedColumn_++;
    const auto found = std::find_if(names.begin(), names.end(),
                                    [&](const Text& candidate) { return isNamed(candidate, *name); });
    if (found == names.end()) {
      fail(automation::number::kItemNotInCollection, u"the recordset has no column '" + *name + u"'");
    }
    expectedColumn_ = static_cast<std::size_t>(found - names.begin());
    return expectedColumn_++;
  }
  const std::int32_t ordinal = automation::toInt32(column);
  if (ordinal < 0 || static_cast<std::size_t>(ordinal) >= names.size()) {
    fail(automation::number::kItemNotInCollection,
         u"the recordset has no column number " + automation::decimalText(ordinal));
  }
  return static_cast<std::size_t>(ordinal);
}

void Recordset::open(const Variant& sql) {
  requireClosed();
  if (connection_ == nullptr || connection_->session() == nullptr) {
    fail(number::kNoConnection, u"the recordset has no open connection");
  }
  Session& session = *connection_->session();
  const Text* text = sql.as<Text>();
  Query& query =
      text != nullptr ? session.query(*text, kSource) : session.query(automation::toText(sql), kSource);
  opened_ = false;
  fetch(session, query);
  columns_ = query.columns;
  expectedColumn_ = 0;
  fetchedAt_ = 0;
  place_ = fetchedCount_ > 0 ? Place::kFetched : Place::kEnd;
  pending_ = false;
  addedCount_ = 0;
  insertion_ = nullptr;
  opening_ = connection_->opening();
  opened_ = true;
}

// Reads all rows at once, because an active query would block writes of this connection.
void Recordset::fetch(Session& session, Query& query) {
  fetched_.clear();
  fetched_.text.clear();
  fetchedCount_ = 0;
  const Reset reset(query.statement);
  session.attempt(kSource, [&] {
    session.flushFor(query);
    while (query.statement.step()) {
      const int columns = query.statement.columnCount();
      for (int column = 0; column < columns; ++column) {
        const auto text = query.statement.text(column);
        fetched_.cells.push_back({fetched_.text.size(), text ? text->size() : 0, !text});
        if (text) fetched_.text.append(*text);
      }
      ++fetchedCount_;
    }
  });
  session.refreshColumns(query);
}

void Recordset::close() {
  requireOpen();
  if (pending_) {
    fail(automation::number::kNotAllowedInContext, u"cannot close the recordset: it has an unsaved row");
  }
  opened_ = false;
}

void Recordset::addNew() {
  Session& session = requireOpen();
  if (lockType_ == kLockReadOnly || columns_->insertSql.empty()) {
    fail(number::kNotSupported, u"cannot add rows: the recordset is read-only");
  }
  if (pending_) save(session);
  pendingRow_.clear();
  pendingRow_.cells.resize(columns_->names.size());
  expectedColumn_ = 0;
  pending_ = true;
}

void Recordset::update() {
  Session& session = requireOpen();
  requireRow();
  if (pending_) save(session);
}

void Recordset::cancelUpdate() {
  requireOpen();
  if (!pending_) {
    fail(automation::number::kNotAllowedInContext, u"cannot cancel: the recordset has no unsaved row");
  }
  pending_ = false;
}

void Recordset::moveNext() {
  Session& session = requireOpen();
  requireRow();
  if (pending_) save(session);
  expectedColumn_ = 0;
  if (place_ == Place::kFetched && ++fetchedAt_ < fetchedCount_) return;
  place_ = Place::kEnd;
}

void Recordset::save(Session& session) {
  if (insertion_ == nullptr) insertion_ = &session.insertion(*columns_, kSource);
  session.attempt(kSource, [&] {
    session.insertions().add(*insertion_, [this](std::size_t column) -> sqlite::RowLog::Cell {
      const Cell& cell = pendingRow_.cells[column];
      if (cell.isNull) return std::nullopt;
      return pendingRow_.at(cell);
    });
  });
  std::swap(pendingRow_, savedRow_);
  pending_ = false;
  place_ = Place::kSaved;
  ++addedCount_;
}

std::int32_t Recordset::recordCount() const {
  const bool counted =
      cursorLocation_ == kUseClient || (cursorType_ != kOpenForwardOnly && cursorType_ != kOpenDynamic);
  return counted ? static_cast<std::int32_t>(fetchedCount_ + addedCount_) : -1;
}

Variant Recordset::valueAt(std::size_t column) const {
  const bool added = pending_ || place_ == Place::kSaved;
  const Values& values = !added ? fetched_ : pending_ ? pendingRow_ : savedRow_;
  const Cell& cell = values.cells[(added ? 0 : fetchedAt_ * columns_->names.size()) + column];
  if (cell.isNull) return automation::Null;
  return automation::fromUtf8(values.at(cell));
}

void Recordset::setValue(std::size_t column, const Variant& value) {
  if (!pending_) {
    requireRow();
    fail(number::kNotSupported, u"cannot change column '" + columns_->names[column] + u"' of a saved row");
  }
  Cell cell{pendingRow_.used, 0, value.isNull()};
  if (cell.isNull) {
    pendingRow_.cells[column] = cell;
    return;
  }
  if (const Text* text = value.as<Text>()) {
    pendingRow_.append(*text);
  } else if (value.as<automation::ObjectRef>() != nullptr || value.asArray() != nullptr) {
    fail(automation::number::kTypeMismatch,
         u"cannot store an object or array in column '" + columns_->names[column] + u"'");
  } else {
    pendingRow_.append(automation::toText(value));
  }
  cell.size = pendingRow_.used - cell.begin;
  pendingRow_.cells[column] = cell;
}

}  // namespace platform::store
