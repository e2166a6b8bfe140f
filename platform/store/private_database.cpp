#include "platform/store/private_database.h"

#include <vector>

#include "platform/store/session.h"

namespace platform::store {
namespace {

// What a database may take of memory before it goes to a temporary file.
constexpr int kCacheKibibytes = 32 * 1024;

struct Lent {
  automation::Text name;
  std::shared_ptr<Session> session;
};
thread_local Lent current;

}  // namespace

// One transaction all along: nobody looks on, and nothing is ever committed.
PrivateDatabase::PrivateDatabase(const std::string& name)
    : session_(std::make_shared<Session>(std::make_unique<sqlite::Database>(name, kCacheKibibytes))) {
  database().execute("begin");
}

PrivateDatabase::~PrivateDatabase() = default;

sqlite::Database& PrivateDatabase::database() {
  return session_->database();
}

void PrivateDatabase::empty() {
  std::vector<std::string> tables;
  {
    sqlite::Statement names = database().prepare(
        "select name from sqlite_schema where type = 'table' and name not like 'sqlite_%'");
    while (names.step()) tables.emplace_back(names.text(0).value_or(""));
  }
  for (const std::string& table : tables) database().execute("delete from " + sqlite::quotedName(table));
}

const std::string& PrivateDatabase::breakdown() const {
  return session_->breakdown();
}

Loan::Loan(PrivateDatabase& database) {
  current = {automation::fromUtf8(database.database().name()), database.session_};
}

Loan::~Loan() {
  current = {};
}

std::shared_ptr<Session> lent(automation::TextView name) {
  return current.session != nullptr && current.name == name ? current.session : nullptr;
}

}  // namespace platform::store
