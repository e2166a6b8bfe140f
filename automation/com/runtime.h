// Connects the late-binding runtime to COM.
#pragma once

namespace automation::com {

// Sets COM as the fallback of the process's runtime: COM's moniker parser for unregistered monikers, its
// class table for unregistered classes; the screen object sets the calling thread's cursor; logs are in the
// system's code page, with a question mark for other characters. May be called repeatedly.
void bindRuntime();

// Pins this library until the process exits. Its thread-local objects have destructors, and the C++ runtime
// releases its own reference to the library while it runs them at thread exit; if COM has already unloaded
// the library, that code would be gone.
void stayLoaded();

}  // namespace automation::com
