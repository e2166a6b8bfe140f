// The headers of Windows and of the C++ runtime. To be included by automation/com/ only.
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

// A macro of GDI with the name of a function of ours.
#undef GetObject
