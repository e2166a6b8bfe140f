#include "platform/store/private_database.h"

#include "platform/store/session.h"

namespace platform::store {
namespace {

// The size above which a database uses a temporary file.
constexpr int kCacheKibibytes = 32 * 1024;

struct Redirect {
  automation::Text name;
  std::shared_ptr<Session> session;
};
thread_local Redirect current;

}  // namespace

// A single transaction that is never committed.
PrivateDatabase::PrivateDatabase(const std::string& name)
    : session_(std::make_shared<Session>(std::make_unique<sqlite::Database>(name, kCacheKibibytes))) {
  database().execute("begin");
}

PrivateDatabase::~PrivateDatabase() = default;

const std::string& PrivateDatabase::name() const {
  return session_->database().name();
}

sqlite::Database& PrivateDatabase::database() {
  session_->insertions().flush();
  return session_->database();
}

void PrivateDatabase::bufferRows(const std::string& table) {
  session_->bufferRows(table);
}

const sqlite::RowLog* PrivateDatabase::bufferedRows(std::string_view table) {
  return session_->insertions().bufferedRows(table);
}

std::optional<sqlite::RowLog> PrivateDatabase::takeBufferedRows(std::string_view table) {
  return session_->insertions().takeBufferedRows(table);
}

std::int64_t PrivateDatabase::memoryInUse() const {
  return session_->database().memoryInUse();
}

void PrivateDatabase::empty() {
  session_->insertions().removeRows();
}

const std::string& PrivateDatabase::fatalError() const {
  return session_->fatalError();
}

ConnectionRedirect::ConnectionRedirect(PrivateDatabase& database) {
  current = {automation::fromUtf8(database.name()), database.session_};
}

ConnectionRedirect::~ConnectionRedirect() {
  current = {};
}

std::shared_ptr<Session> redirectedSession(automation::TextView name) {
  return current.session != nullptr && current.name == name ? current.session : nullptr;
}

}  // namespace platform::store
