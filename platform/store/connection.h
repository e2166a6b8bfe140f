// A connection to a database file with the interface of ADO.
#pragma once

#include <cstdint>
#include <memory>

#include "automation/object.h"
#include "platform/store/session.h"

namespace platform::store {

// Properties: Provider (stored, without effect), ConnectionString (the file's path), State (0 closed, 1
// open). Methods: Open(path), Execute(sql), Close(). Each saved row is committed on its own, so connections
// to one file see each other's rows at once. Closing a connection closes its recordsets and discards unsaved
// rows. See ConnectionRedirect for private databases.
class Connection : public automation::Object {
 public:
  automation::Variant read(automation::TextView member, automation::Arguments arguments) override;
  void write(automation::TextView member, automation::Arguments arguments,
             const automation::Variant& value) override;
  automation::Variant call(automation::TextView member, automation::Arguments arguments) override;
  std::unique_ptr<automation::Walk> children() override;

  // The database, or null if the connection is closed.
  Session* session() const { return session_.get(); }

  // Changes with each Open and Close, so that a recordset can detect that its database was closed.
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
