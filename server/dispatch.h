// Late-bound objects over the component's two classes.
#pragma once

#include "automation/object.h"

namespace TORVINFTPAppDataCom {

// Creates an object of the class. Its public members are found by name without regard to case. Its methods
// take their arguments in the order of the class's interface; optional ones may be omitted or Empty. A wrong
// number of arguments fails with 450, an unknown name with 438.
automation::ObjectRef CreateFTPCollection();
automation::ObjectRef CreateAppPoolCollection();

// The number of these objects in the process.
long LivingObjects();

}  // namespace TORVINFTPAppDataCom
