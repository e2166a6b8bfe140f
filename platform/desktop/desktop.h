// The objects that the component expects from its host: the common object and the screen object.
#pragma once

#include "automation/object.h"

namespace platform::desktop {

// Creates a common object ("MARLINSCOPEGLOBALCOM.ICommonFunction"). It has the property ErrorLogPath,
// initially empty, and the function getos(server), which returns the major version of the server's IIS as a
// 16-bit integer: MajorIIsVersionNumber of the web service's Info node in the metabase snapshot, else of the
// FTP service's. getos throws Failure if neither node has it.
automation::ObjectRef makeCommonObject();

// Creates the screen object. Its only property MousePointer is a number, initially 0, and thread-local, so
// that concurrent threads do not restore each other's pointer.
automation::ObjectRef makeScreenObject();

// Registers both with the process's runtime.
void registerDesktop();

}  // namespace platform::desktop
