// Failures on their way through COM.
#pragma once

#include <exception>

#include "automation/com/owned.h"
#include "automation/failure.h"

namespace automation::com {

// The number of a result code: what automation programmers know it by, else the code itself.
std::int32_t numberOf(HRESULT code);

// The result code of a number: 0x800A0000 and the number for those below 65536, a negative one as it is.
HRESULT codeOf(std::int32_t number);

// What the system says of a code, in one line.
Text systemText(HRESULT code);

// Throws the failure of a call through IDispatch. `exception` counts where the code is DISP_E_EXCEPTION.
[[noreturn]] void failCall(HRESULT code, EXCEPINFO& exception, TextView member);

// Throws the failure of any other call, with the words of the thread's error object where it has one. `about`
// stands in the description where it hasn't. The error object is cleared ahead of such a call.
[[noreturn]] void failPlain(HRESULT code, TextView about);
void clearErrorObject();

// The failure that is being handled, for use in a catch (...) at the edge of every call that comes in. Gives
// its texts and its result code.
struct Outgoing {
  HRESULT code = E_FAIL;
  Text description;
  Text source;
};
Outgoing outgoing(TextView ownSource) noexcept;

// The same as a caller through IDispatch is told, or one through the vtable, or by a moniker. Both give the
// result code to return.
HRESULT tellException(const Outgoing& failure, EXCEPINFO* exception) noexcept;
HRESULT tellErrorObject(const Outgoing& failure, const IID& interfaceId) noexcept;

}  // namespace automation::com
