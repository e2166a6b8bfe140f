// The connection to a database file as ADO programmers know it.
#pragma once

#include <cstdint>
#include <memory>

#include "automation/object.h"
#include "platform/store/session.h"

namespace platform::store {

// Properties: Provider (kept, of no effect), ConnectionString (the file's path), State (0 closed, 1 open).
// Methods: Open(path), Execute(sql), Close(). A saved row is a commit of its own, so connections to one file
// see each other's rows at once. Closing one closes its recordsets and drops the rows that they haven't
// saved. A path under which the thread has a private database on redirect means that database.
class Connection : public automation::Object {
 public:
  automation::Variant read(automation::TextView member, automation::Arguments arguments) override;
  void write(automation::TextView member, automation::Arguments arguments,
             const automation::Variant& value) override;
  automation::Variant call(automation::TextView member, automation::Arguments arguments) override;
  std::unique_ptr<automation::Walk> children() override;

  // The database, or null where the connection is closed.
  Session* session() const { return session_.get(); }

  // Changes with each Open and Close, so that a recordset can tell whether the database is still the one that
  // it was opened on.
  std::uint64_t opening() const { return opening_; }

 private:
  void open(const automation::Variant& path);
  void execute(const automation::Variant& sql);
  void close();

  automation::Text provider_;
  automation::Text connectionString_;
  std::shared_ptr<Session> session_;
  std::uint64_t opening_ = 0;
};

}  // namespace platform::store
