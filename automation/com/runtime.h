// The runtime of late binding bound to COM.
#pragma once

namespace automation::com {

// Enters COM in the process's runtime: whatever moniker nobody serves goes to the moniker parser, whatever
// class nobody creates to the class table; the screen object is the system's cursor, of which every thread
// sets its own; logs are in the system's code page, with a question mark for a character that it lacks. May
// be called again.
void bindRuntime();

}  // namespace automation::com
