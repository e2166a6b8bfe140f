// What the host's user sees of a call: the progress operations on the host's three objects, the texts that
// they get, and the mouse pointer.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom::progress {

// Each does nothing where its object is null. A failure of the host's object passes to the caller.
//
// Sends a status text.
void SetStatusBarMessage(const ObjectRef& objStatusBar, Text strMessage);

// Sends the number of steps.
void SetProgressBarMax(const ObjectRef& objProgressBar, std::int16_t intMax);

// Moves one step forward.
void IncrementProgressBar(const ObjectRef& objProgressBar);

// Sends how many are done of how many.
void SetProcessCountMessage(const ObjectRef& objProcessCount, Text strMessage);

// A status text: what is being done, and the quoted name of what it is done with.
Text StatusText(TextView strDoing, TextView strName);

// The count text: 3/12.
Text CountText(std::int16_t intDone, std::int16_t intTotal);

// The count and one more. Fails with 6 past 32767.
std::int16_t AddOne(std::int16_t intCount);

// Sets the mouse pointer of the process's screen object to the hourglass, or back to the default. Fails with
// 91 where the process has no screen object.
void ShowHourglass();
void ShowDefaultPointer();

}  // namespace TORVINFTPAppDataCom::progress
