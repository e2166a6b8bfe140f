// The system's headers and the C++ runtime's own, for whoever binds late binding to COM. Nobody else includes
// them.
#pragma once

#ifndef UNICODE
#define UNICODE
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

#include <windows.h>

#include <cxxabi.h>
#include <dispex.h>
#include <oaidl.h>
#include <objbase.h>
#include <oleauto.h>
#include <olectl.h>

// A macro of the graphics interface, which would rename our function.
#undef GetObject
