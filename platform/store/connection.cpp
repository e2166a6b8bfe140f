#include "platform/store/connection.h"

#include <utility>

#include "automation/failure.h"
#include "automation/variant.h"
#include "platform/store/members.h"
#include "platform/store/private_database.h"

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
  automation::requireArguments(member, arguments, 0, kSource);
  switch (property) {
    case Property::kProvider:
      return provider_;
    case Property::kConnectionString:
      return connectionString_;
    case Property::kState:
      break;
  }
  return std::int32_t{session_ != nullptr};
}

void Connection::write(TextView member, Arguments arguments, const Variant& value) {
  const Property property = findMember(kProperties, member, kSource);
  automation::requireArguments(member, arguments, 0, kSource);
  if (property != Property::kProvider) automation::failMember(member, kSource);
  if (session_ != nullptr) {
    throw Failure(number::kObjectOpen, u"cannot set the provider: the connection is open", Text(kSource));
  }
  provider_ = automation::toText(value);
}

Variant Connection::call(TextView member, Arguments arguments) {
  const Method method = findMember(kMethods, member, kSource);
  automation::requireArguments(member, arguments, method == Method::kClose ? 0 : 1, kSource);
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
  if (session_ != nullptr) {
    throw Failure(number::kObjectOpen, u"the connection is already open", Text(kSource));
  }
  Text text = automation::toText(path);
  session_ = redirectedSession(text);
  if (session_ == nullptr) session_ = openFile(text, kSource);
  connectionString_ = std::move(text);
  ++opening_;
}

void Connection::execute(const Variant& sql) {
  if (session_ == nullptr) throw Failure(number::kObjectClosed, u"the connection is closed", Text(kSource));
  session_->execute(automation::toText(sql), kSource);
}

void Connection::close() {
  if (session_ == nullptr) throw Failure(number::kObjectClosed, u"the connection is closed", Text(kSource));
  session_.reset();
  ++opening_;
}

}  // namespace platform::store
