// Progress display for the host's user: operations on the host's three progress objects, their texts, and the
// mouse pointer.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom::progress {

// Each function does nothing if its object is null. A failure of the host's object propagates to the caller.
//
// Sends a status text.
void SetStatusBarMessage(const ObjectRef& objStatusBar, Text strMessage);

// Sends the number of steps.
void SetProgressBarMax(const ObjectRef& objProgressBar, std::int16_t intMax);

// Advances by one step.
void IncrementProgressBar(const ObjectRef& objProgressBar);

// Sends the count text.
void SetProcessCountMessage(const ObjectRef& objProcessCount, Text strMessage);

// A status text: the action and the quoted name of its object.
Text StatusText(TextView strDoing, TextView strName);

// The count text, such as 3/12.
Text CountText(std::int16_t intDone, std::int16_t intTotal);

// Returns the count plus one. Fails with 6 beyond 32767.
std::int16_t AddOne(std::int16_t intCount);

// Sets the mouse pointer of the process's screen object to the hourglass or to the default. Fails with 91 if
// the process has no screen object.
void ShowHourglass();
void ShowDefaultPointer();

}  // namespace TORVINFTPAppDataCom::progress
