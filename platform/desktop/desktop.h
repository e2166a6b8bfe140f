// The objects that the host of the component brings along: its common object and the screen object.
#pragma once

#include "automation/object.h"

namespace platform::desktop {

// A common object, as CreateObject of "MARLINSCOPEGLOBALCOM.ICommonFunction" gives it. It has the property
// ErrorLogPath, a text that is empty at first, and the function getos, which takes a server's name and gives
// the major version of its IIS as a 16-bit integer: MajorIIsVersionNumber of the web service's Info node in
// the server's metabase snapshot, else of the FTP service's. Where neither node has it, getos fails.
automation::ObjectRef makeCommonObject();

// The screen object. Its one property MousePointer is a number, 0 at first, of which every thread has its
// own: threads that work side by side don't turn each other's pointer back.
automation::ObjectRef makeScreenObject();

// Enters both in the process's runtime.
void registerDesktop();

}  // namespace platform::desktop
