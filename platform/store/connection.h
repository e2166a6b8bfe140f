// The connection to a database file as ADO programmers know it.
#pragma once

#include <cstdint>
#include <memory>

#include "automation/object.h"
#include "platform/store/pool.h"

namespace platform::store {

// Properties: Provider (kept, of no effect), ConnectionString (the file's path), State (0 closed, 1 open).
// Methods: Open(path), Execute(sql), Close(). Connections of one thread to one file see each other's rows at
// once. Closing one closes its recordsets and drops the rows that they haven't saved.
class Connection : public automation::Object {
 public:
  automation::Variant read(automation::TextView member, automation::Arguments arguments) override;
  void write(automation::TextView member, automation::Arguments arguments,
             const automation::Variant& value) override;
  automation::Variant call(automation::TextView member, automation::Arguments arguments) override;
  std::unique_ptr<automation::Walk> children() override;

  // The file, or null where the connection is closed.
  SharedHandle* handle() const { return handle_.get(); }

  // Changes with each Open and Close, so that a recordset can tell whether the file is still the one that it
  // was opened on.
  std::uint64_t session() const { return session_; }

 private:
  void open(const automation::Variant& path);
  void execute(const automation::Variant& sql);
  void close();

  automation::Text provider_;
  automation::Text connectionString_;
  std::shared_ptr<SharedHandle> handle_;
  std::uint64_t session_ = 0;
};

}  // namespace platform::store
