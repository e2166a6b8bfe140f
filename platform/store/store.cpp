#include "platform/store/store.h"

#include <memory>

#include "automation/runtime.h"
#include "platform/store/connection.h"
#include "platform/store/members.h"
#include "platform/store/recordset.h"

namespace platform::store {

void registerStore() {
  automation::Runtime& runtime = automation::Runtime::process();
  runtime.serveClass(u"ADODB.Connection", [] { return std::make_shared<Connection>(); });
  runtime.serveClass(u"ADODB.Recordset", [] { return std::make_shared<Recordset>(); });
}

}  // namespace platform::store
