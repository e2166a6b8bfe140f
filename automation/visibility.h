// Visibility of classes that libraries share.
#pragma once

// Exports a class whose type information must be shared by libraries: an exception thrown in one and caught
// in another, or an interface implemented in one and called in another. Everything else is hidden by default.
#if defined(__GNUC__) && !defined(_WIN32)
#define AUTOMATION_VISIBLE __attribute__((visibility("default")))
#else
#define AUTOMATION_VISIBLE
#endif
