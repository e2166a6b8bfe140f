#include "platform/store/store.h"

#include <memory>

#include "automation/runtime.h"
#include "platform/store/connection.h"
#include "platform/store/members.h"
#include "platform/store/recordset.h"

namespace platform::store {

void failArguments(automation::TextView member, automation::TextView source) {
  throw automation::Failure(automation::number::kWrongArguments,
                            u"Wrong number of arguments: " + automation::Text(member),
                            automation::Text(source));
}

void registerStore() {
  automation::Runtime& runtime = automation::Runtime::process();
  runtime.serveClass(u"ADODB.Connection", [] { return std::make_shared<Connection>(); });
  runtime.serveClass(u"ADODB.Recordset", [] { return std::make_shared<Recordset>(); });
}

}  // namespace platform::store
