#include "tests/support/fakes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <utility>

#include "automation/failure.h"

namespace test {

using namespace automation;

namespace {

[[noreturn]] void fail(std::uint32_t code, Text description, const char16_t* source = u"FakeStore") {
  throw Failure(static_cast<std::int32_t>(code), std::move(description), source);
}

class ListWalk final : public Walk {
 public:
  explicit ListWalk(std::vector<std::shared_ptr<FakeObject>> objects) : objects_(std::move(objects)) {}
  ObjectRef next() override { return at_ < objects_.size() ? objects_[at_++] : nullptr; }

 private:
  std::vector<std::shared_ptr<FakeObject>> objects_;
  std::size_t at_ = 0;
};

// The SQL texts of the component, taken apart: what is selected (all, where that is empty) or set, and where.
struct Statement {
  bool distinct = false;
  Text table;
  Text column;
  Text value;
  bool none = false;
  std::vector<std::pair<Text, Text>> conditions;
};

const std::string kCondition = R"(\[([^\]]*)\] ?= ?'((?:[^']|'')*)')";
const std::string kConditions = R"(((?:\[[^\]]*\] ?= ?'(?:[^']|'')*'(?: and )?)+|1=2) ?)";

Text unquoted(const std::string& quoted) {
  return fromUtf8(std::regex_replace(quoted, std::regex("''"), "'"));
}

Statement parse(const Text& sql) {
  static const std::regex select(R"(Select (Distinct )?(?:\*|\[([^\]]*)\]) from (\w+) where )" + kConditions);
  static const std::regex update(R"(Update (\w+) set (\w+)= '((?:[^']|'')*)' Where )" + kConditions);
  static const std::regex condition(kCondition);
  const std::string text = toUtf8(sql);
  std::smatch found;
  Statement statement;
  if (std::regex_match(text, found, select)) {
    statement.distinct = found[1].matched;
    statement.column = fromUtf8(found.str(2));
    statement.table = fromUtf8(found.str(3));
  } else if (std::regex_match(text, found, update)) {
    statement.table = fromUtf8(found.str(1));
    statement.column = fromUtf8(found.str(2));
    statement.value = unquoted(found.str(3));
  } else {
    fail(0x80040E14, u"Syntax error in: " + sql);
  }
  const std::string where = found.str(4);
  statement.none = where == "1=2";
  for (std::sregex_iterator at(where.begin(), where.end(), condition), end; at != end; ++at) {
    statement.conditions.emplace_back(fromUtf8(at->str(1)), unquoted(at->str(2)));
  }
  return statement;
}

std::size_t columnOf(const std::vector<Text>& columns, TextView name) {
  for (std::size_t at = 0; at < columns.size(); ++at) {
    if (equalsIgnoringCase(columns[at], name)) return at;
  }
  fail(3265, u"No column " + Text(name));
}

FakeStore::Table& tableOf(FakeStore& store, const Statement& statement) {
  const auto found = store.tables.find(lowerCase(statement.table));
  if (found == store.tables.end()) fail(0x80040E37, u"No table " + statement.table);
  return found->second;
}

bool matches(const FakeStore::Table& table, const Statement& statement, const FakeStore::Row& row) {
  return !statement.none && std::all_of(statement.conditions.begin(), statement.conditions.end(),
                                        [&](const std::pair<Text, Text>& condition) {
                                          const auto& value = row[columnOf(table.columns, condition.first)];
                                          return value && equalsIgnoringCase(*value, condition.second);
                                        });
}

class Connection final : public MemberlessObject {
 public:
  explicit Connection(FakeStore& store) : MemberlessObject(u"FakeStore"), store_(store) {}
  ~Connection() override { setOpen(false); }

  Variant read(TextView member, Arguments) override {
    if (member != u"State") failMember(member, source());
    return std::int32_t{open_};
  }
  void write(TextView member, Arguments, const Variant&) override {
    if (member != u"Provider") failMember(member, source());
  }
  Variant call(TextView member, Arguments arguments) override {
    if (member == u"Open") {
      if (toText(arguments[0]) != store_.file) fail(0x80004005, u"No file " + toText(arguments[0]));
      setOpen(true);
    } else if (!open_) {
      fail(3704, u"The connection is closed");
    } else if (member == u"Close") {
      setOpen(false);
    } else {
      const Statement statement = parse(toText(arguments[0]));
      FakeStore::Table& table = tableOf(store_, statement);
      for (FakeStore::Row& row : table.rows) {
        if (matches(table, statement, row)) row[columnOf(table.columns, statement.column)] = statement.value;
      }
    }
    return {};
  }

  bool isOpen() const { return open_; }

 private:
  void setOpen(bool open) {
    store_.openConnections += int{open} - int{open_};
    open_ = open;
  }

  FakeStore& store_;
  bool open_ = false;
};

class Recordset final : public MemberlessObject {
 public:
  explicit Recordset(FakeStore& store) : MemberlessObject(u"FakeStore"), store_(store) {}
  ~Recordset() override { setOpen(false); }

  Variant read(TextView member, Arguments arguments) override {
    if (member == u"State") return std::int32_t{open_};
    requireOpen();
    if (member == u"EOF") return !pending_ && at_ >= rows_.size();
    if (member == u"Recordcount") return cursorLocation_ == 3 ? static_cast<std::int32_t>(rows_.size()) : -1;
    const std::size_t column = columnOf(columns_, toText(arguments[0]));
    const auto& value = pending_ ? (*pending_)[column] : currentRow()[column];
    return value ? Variant(*value) : Variant(Null);
  }

  void write(TextView member, Arguments arguments, const Variant& value) override {
    if (member == u"CursorLocation") cursorLocation_ = toInt32(value);
    if (member == u"ActiveConnection") connection_ = std::dynamic_pointer_cast<Connection>(toObject(value));
    if (member != u"Collect") return;
    requireOpen();
    const std::size_t column = columnOf(columns_, toText(arguments[0]));
    if (!pending_) fail(3251, u"No new row");
    EXPECT_NE(value.as<Text>(), nullptr) << "no text in " << toUtf8(columns_[column]);
    (*pending_)[column] = toText(value);
  }

  Variant call(TextView member, Arguments arguments) override {
    if (member == u"Open") {
      open(parse(toText(arguments[0])));
      return {};
    }
    requireOpen();
    if (member == u"AddNew") {
      save();
      pending_ = FakeStore::Row(columns_.size());
    } else if (member == u"Update") {
      if (!pending_) currentRow();
      save();
    } else if (member == u"CancelUpdate") {
      if (!pending_) fail(3219, u"No new row to cancel");
      pending_.reset();
    } else if (member == u"MoveNext") {
      currentRow();
      ++at_;
    } else if (member == u"Close") {
      if (pending_) fail(3219, u"A new row waits");
      setOpen(false);
    } else {
      failMember(member, source());
    }
    return {};
  }

 private:
  void requireOpen() const {
    if (!open_) fail(3704, u"The recordset is closed");
  }
  const FakeStore::Row& currentRow() const {
    if (at_ >= rows_.size()) fail(3021, u"No current row");
    return rows_[at_];
  }

  void open(const Statement& statement) {
    if (connection_ == nullptr || !connection_->isOpen()) fail(3709, u"No open connection");
    table_ = &tableOf(store_, statement);
    columns_ = statement.column.empty() ? table_->columns : std::vector<Text>{statement.column};
    for (FakeStore::Row row : table_->rows) {
      if (!matches(*table_, statement, row)) continue;
      if (!statement.column.empty()) row = {row[columnOf(table_->columns, statement.column)]};
      if (statement.distinct && std::find(rows_.begin(), rows_.end(), row) != rows_.end()) continue;
      rows_.push_back(std::move(row));
    }
    setOpen(true);
  }

  // A saved row is the current one.
  void save() {
    if (!pending_) return;
    table_->rows.push_back(*pending_);
    rows_.push_back(*std::exchange(pending_, std::nullopt));
    at_ = rows_.size() - 1;
  }

  void setOpen(bool open) {
    store_.openRecordsets += int{open} - int{open_};
    open_ = open;
  }

  FakeStore& store_;
  std::shared_ptr<Connection> connection_;
  FakeStore::Table* table_ = nullptr;
  std::int32_t cursorLocation_ = 2;
  std::vector<Text> columns_;
  std::vector<FakeStore::Row> rows_;
  std::size_t at_ = 0;
  std::optional<FakeStore::Row> pending_;
  bool open_ = false;
};

}  // namespace

FakeObject& FakeObject::set(TextView property, Variant value) {
  properties_[lowerCase(property)] = std::move(value);
  return *this;
}

FakeObject& FakeObject::unset(TextView property) {
  properties_.erase(lowerCase(property));
  return *this;
}

FakeObject& FakeObject::method(TextView name, Method method) {
  methods_[lowerCase(name)] = std::move(method);
  return *this;
}

Variant FakeObject::get(TextView property) const {
  const auto found = properties_.find(lowerCase(property));
  if (found == properties_.end()) fail(0x80005006, u"No property " + Text(property), u"FakeObject");
  return found->second;
}

std::shared_ptr<FakeObject> FakeObject::find(TextView name) const {
  for (const auto& child : children_) {
    if (equalsIgnoringCase(toText(child->get(u"Name")), name)) return child;
  }
  return nullptr;
}

FakeObject& FakeObject::add(TextView name) {
  children_.push_back(std::make_shared<FakeObject>());
  return children_.back()->set(u"Name", name);
}

Variant FakeObject::read(TextView member, Arguments) {
  return get(member);
}

void FakeObject::write(TextView member, Arguments, const Variant& value) {
  get(member);
  set(member, value);
}

Variant FakeObject::call(TextView member, Arguments arguments) {
  const auto found = methods_.find(lowerCase(member));
  if (found != methods_.end()) return found->second(arguments);
  if (!equalsIgnoringCase(member, u"GetEx")) failMember(member, u"FakeObject");
  return get(toText(arguments[0]));
}

std::unique_ptr<Walk> FakeObject::children() {
  return std::make_unique<ListWalk>(children_);
}

Variant texts(const std::vector<Text>& elements) {
  Array array;
  array.elements.assign(elements.begin(), elements.end());
  return array;
}

ObjectRef FakeStore::createConnection() {
  return std::make_shared<Connection>(*this);
}

ObjectRef FakeStore::createRecordset() {
  return std::make_shared<Recordset>(*this);
}

}  // namespace test
