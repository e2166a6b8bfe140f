// Late-bound objects over the component's two classes.
#pragma once

#include "automation/object.h"

namespace TORVINFTPAppDataCom {

// A new object of the class, whose public members are found by name without regard to case. Its methods take
// their arguments in the order of the class's interface; optional ones may be left out or Empty. A wrong
// number of arguments fails with 450, a name that isn't there with 438.
automation::ObjectRef CreateFTPCollection();
automation::ObjectRef CreateAppPoolCollection();

// How many of these objects live in the process.
long LivingObjects();

}  // namespace TORVINFTPAppDataCom
