// Maps failures to COM and back.
#pragma once

#include <exception>

#include "automation/com/owned.h"
#include "automation/failure.h"

namespace automation::com {

// The automation number of a result code, else the code itself.
std::int32_t numberOf(HRESULT code);

// The result code of a number: 0x800A0000 plus the number if it is below 65536; negative numbers are
// unchanged.
HRESULT codeOf(std::int32_t number);

// The system's message for a code, in one line.
Text systemText(HRESULT code);

// Throws the failure of a call through IDispatch. `exception` is used if the code is DISP_E_EXCEPTION.
[[noreturn]] void failCall(HRESULT code, EXCEPINFO& exception, TextView member);

// Throws the failure of any other call, with the texts of the thread's error object, if there is one, else
// with `about`. Callers clear the error object before the call.
[[noreturn]] void failPlain(HRESULT code, TextView about);
void clearErrorObject();

// The exception being handled, for the catch (...) of every incoming call: its texts and result code.
struct Outgoing {
  HRESULT code = E_FAIL;
  Text description;
  Text source;
};
Outgoing outgoing(TextView ownSource) noexcept;

// Reports the exception being handled to a caller through IDispatch, the vtable or a moniker. Return the
// result code.
HRESULT returnException(const Outgoing& failure, EXCEPINFO* exception) noexcept;
HRESULT returnErrorObject(const Outgoing& failure, const IID& interfaceId) noexcept;

}  // namespace automation::com
