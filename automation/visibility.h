// Classes that must be the same in every library of the process.
#pragma once

// Marks a class whose identity crosses libraries: an exception that is thrown in one and caught in another,
// an interface that one implements and another calls. Everything else of a library is hidden unless its
// target says otherwise.
#if defined(__GNUC__) && !defined(_WIN32)
#define AUTOMATION_VISIBLE __attribute__((visibility("default")))
#else
#define AUTOMATION_VISIBLE
#endif
