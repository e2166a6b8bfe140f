// The runtime of late binding bound to COM.
#pragma once

namespace automation::com {

// Enters COM in the process's runtime: whatever moniker nobody serves goes to the moniker parser, whatever
// class nobody creates to the class table; the screen object is the system's cursor, of which every thread
// sets its own; logs are in the system's code page, with a question mark for a character that it lacks. May
// be called again.
void bindRuntime();

// Keeps the library that this is part of in memory to the process's end. What it keeps for each thread has
// destructors; while such a thread is at work the C++ runtime holds the library, and lets go of it when the
// thread ends, from within: where COM has let go of it before, the thread ends in memory that is gone.
void stayLoaded();

}  // namespace automation::com
