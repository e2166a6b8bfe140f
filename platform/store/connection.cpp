#include "platform/store/connection.h"

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

constexpr TextView kSource = u"ADODB.Connection";

enum class Property { kProvider, kConnectionString, kState };
constexpr MemberName<Property> kProperties[] = {
    {u"State", Property::kState},
    {u"Provider", Property::kProvider},
    {u"ConnectionString", Property::kConnectionString},
};

enum class Method { kOpen, kExecute, kClose };
constexpr MemberName<Method> kMethods[] = {
    {u"Open", Method::kOpen},
    {u"Close", Method::kClose},
    {u"Execute", Method::kExecute},
};

}  // namespace

Variant Connection::read(TextView member, Arguments arguments) {
  const Property property = findMember(kProperties, member, kSource);
  requireArguments(arguments, 0, member, kSource);
  switch (property) {
    case Property::kProvider:
      return provider_;
    case Property::kConnectionString:
      return connectionString_;
    case Property::kState:
      break;
  }
  return std::int32_t{handle_ != nullptr};
}

void Connection::write(TextView member, Arguments arguments, const Variant& value) {
  const Property property = findMember(kProperties, member, kSource);
  requireArguments(arguments, 0, member, kSource);
  if (property != Property::kProvider) automation::failMember(member, kSource);
  if (handle_ != nullptr) {
    throw Failure(number::kObjectOpen, u"The provider can't be set while the connection is open",
                  Text(kSource));
  }
  provider_ = automation::toText(value);
}

Variant Connection::call(TextView member, Arguments arguments) {
  const Method method = findMember(kMethods, member, kSource);
  requireArguments(arguments, method == Method::kClose ? 0 : 1, member, kSource);
  switch (method) {
    case Method::kOpen:
      open(arguments[0]);
      break;
    case Method::kExecute:
      execute(arguments[0]);
      break;
    case Method::kClose:
      close();
      break;
  }
  return {};
}

std::unique_ptr<automation::Walk> Connection::children() {
  automation::failMember(u"(children)", kSource);
}

void Connection::open(const Variant& path) {
  if (handle_ != nullptr) {
    throw Failure(number::kObjectOpen, u"The connection is open already", Text(kSource));
  }
  Text text = automation::toText(path);
  handle_ = openShared(text, kSource);
  connectionString_ = std::move(text);
  ++session_;
}

void Connection::execute(const Variant& sql) {
  if (handle_ == nullptr) throw Failure(number::kObjectClosed, u"The connection is closed", Text(kSource));
  const Text text = automation::toText(sql);
  StatementPtr statement = handle_->prepareOne(text, kSource);
  int result = SQLITE_ROW;
  while (result == SQLITE_ROW) result = sqlite3_step(statement.get());
  if (result != SQLITE_DONE) handle_->fail(result, kSource);
  const bool wrote = sqlite3_stmt_readonly(statement.get()) == 0;
  statement.reset();
  if (wrote) handle_->changed();
  // The file's other connections would be drawn into a transaction, and a closed one would leave it locked.
  if (sqlite3_get_autocommit(handle_->raw()) == 0) {
    sqlite3_exec(handle_->raw(), "rollback", nullptr, nullptr, nullptr);
    throw Failure(automation::number::kNotAllowedInContext, u"A transaction can't be begun by an SQL text",
                  Text(kSource));
  }
}

void Connection::close() {
  if (handle_ == nullptr) throw Failure(number::kObjectClosed, u"The connection is closed", Text(kSource));
  handle_.reset();
  ++session_;
}

}  // namespace platform::store
