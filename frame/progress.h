// The progress operations on the host's three objects. Each does nothing where its object is null. A failure
// of the host's object passes to the caller.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom::progress {

// Sends a status text.
void SetStatusBarMessage(const ObjectRef& objStatusBar, const Text& strMessage);

// Sends the number of steps.
void SetProgressBarMax(const ObjectRef& objProgressBar, std::int16_t intMax);

// Moves one step forward.
void IncrementProgressBar(const ObjectRef& objProgressBar);

// Sends how many are done of how many.
void SetProcessCountMessage(const ObjectRef& objProcessCount, const Text& strMessage);

// The count text: 3/12.
Text CountText(std::int16_t intDone, std::int16_t intTotal);

// The count and one more. Fails with 6 past 32767.
std::int16_t AddOne(std::int16_t intCount);

}  // namespace TORVINFTPAppDataCom::progress
