// The maker of databases.
#pragma once

#include "automation/object.h"

namespace test {

// What CreateObject of "ADOX.Catalog" gives: an object with the method Create, which makes the database that
// its one argument names behind "Data Source=".
automation::ObjectRef makeCatalog();

}  // namespace test
