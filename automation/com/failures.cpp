#include "automation/com/failures.h"

#include <array>
#include <new>

namespace automation::com {
namespace {

constexpr std::uint32_t kControlCodes = 0x800A0000;

BSTR textOrNull(TextView text) noexcept {
  if (text.empty()) return nullptr;
  return SysAllocStringLen(reinterpret_cast<const wchar_t*>(text.data()), static_cast<UINT>(text.size()));
}

}  // namespace

std::int32_t numberOf(HRESULT code) {
  const auto bits = static_cast<std::uint32_t>(code);
  if ((bits & 0xFFFF0000) == kControlCodes) return static_cast<std::int32_t>(bits & 0xFFFF);
  switch (code) {
    case DISP_E_UNKNOWNNAME:
    case DISP_E_MEMBERNOTFOUND:
      return number::kMemberNotSupported;
    case DISP_E_BADPARAMCOUNT:
    case DISP_E_PARAMNOTOPTIONAL:
    case DISP_E_PARAMNOTFOUND:
    case DISP_E_NONAMEDARGS:
      return number::kWrongArguments;
    case DISP_E_TYPEMISMATCH:
    case DISP_E_BADVARTYPE:
      return number::kTypeMismatch;
    case DISP_E_OVERFLOW:
      return number::kOverflow;
    case DISP_E_BADINDEX:
      return number::kSubscriptOutOfRange;
    case REGDB_E_CLASSNOTREG:
    case CO_E_CLASSSTRING:
      return number::kCannotCreateObject;
    default:
      return code;
  }
}

HRESULT codeOf(std::int32_t number) {
  if (number < 0) return number;
  if (number > 0xFFFF) return E_FAIL;
  return static_cast<HRESULT>(kControlCodes | static_cast<std::uint32_t>(number));
}

Text systemText(HRESULT code) {
  std::array<wchar_t, 1024> buffer{};
  constexpr DWORD kFlags =
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
  const DWORD length = FormatMessageW(kFlags, nullptr, static_cast<DWORD>(code), 0, buffer.data(),
                                      static_cast<DWORD>(buffer.size()), nullptr);
  TextView text(reinterpret_cast<const char16_t*>(buffer.data()), length);
  while (!text.empty() && (text.back() == u' ' || text.back() == u'.')) text.remove_suffix(1);
  if (!text.empty()) return Text(text);
  constexpr TextView kDigits = u"0123456789ABCDEF";
  Text shown = u"Error 0x";
  for (int shift = 28; shift >= 0; shift -= 4) {
    shown += kDigits[static_cast<std::uint32_t>(code) >> shift & 0xF];
  }
  return shown;
}

void failCall(HRESULT code, EXCEPINFO& exception, TextView member) {
  if (code == E_OUTOFMEMORY) throw std::bad_alloc();
  if (code != DISP_E_EXCEPTION) {
    const std::int32_t number = numberOf(code);
    if (number == number::kMemberNotSupported) failMember(member, {});
    throw Failure(number, systemText(code) + u": " + Text(member));
  }
  if (exception.pfnDeferredFillIn != nullptr) exception.pfnDeferredFillIn(&exception);
  HRESULT reported = exception.scode;
  std::int32_t number = reported != 0 ? numberOf(reported) : exception.wCode;
  if (number == 0) {
    reported = DISP_E_EXCEPTION;
    number = reported;
  }
  if (reported == 0) reported = codeOf(number);
  Text description(viewOf(exception.bstrDescription));
  if (description.empty()) description = systemText(reported);
  throw Failure(number, std::move(description), Text(viewOf(exception.bstrSource)));
}

void clearErrorObject() {
  SetErrorInfo(0, nullptr);
}

void failPlain(HRESULT code, TextView about) {
  if (code == E_OUTOFMEMORY) throw std::bad_alloc();
  Pointer<IErrorInfo> info;
  OwnedText description;
  OwnedText source;
  if (GetErrorInfo(0, info.put()) == S_OK && info) {
    info->GetDescription(description.address());
    info->GetSource(source.address());
  }
  Text words(description.view());
  if (words.empty()) words = systemText(code) + u": " + Text(about);
  throw Failure(numberOf(code), std::move(words), Text(source.view()));
}

Outgoing outgoing(TextView ownSource) noexcept {
  Outgoing failed;
  try {
    failed.source = ownSource;
    try {
      throw;
    } catch (const Failure& failure) {
      failed.code = codeOf(failure.number());
      failed.description = failure.description();
      if (!failure.source().empty()) failed.source = failure.source();
    } catch (const std::bad_alloc&) {
      failed.code = E_OUTOFMEMORY;
      failed.description = systemText(E_OUTOFMEMORY);
    } catch (const std::exception& error) {
      failed.code = codeOf(number::kInternal);
      failed.description = fromUtf8(error.what());
    } catch (...) {
      failed.code = codeOf(number::kInternal);
      failed.description = u"Unexpected failure";
    }
  } catch (...) {
    // No memory for the message.
    failed.code = E_OUTOFMEMORY;
  }
  return failed;
}

HRESULT returnException(const Outgoing& failure, EXCEPINFO* exception) noexcept {
  if (failure.code == E_OUTOFMEMORY) return E_OUTOFMEMORY;
  if (exception == nullptr) return DISP_E_EXCEPTION;
  *exception = {};
  exception->scode = failure.code;
  exception->bstrDescription = textOrNull(failure.description);
  exception->bstrSource = textOrNull(failure.source);
  return DISP_E_EXCEPTION;
}

HRESULT returnErrorObject(const Outgoing& failure, const IID& interfaceId) noexcept {
  Pointer<ICreateErrorInfo> made;
  if (CreateErrorInfo(made.put()) < 0) return failure.code;
  BSTR description = textOrNull(failure.description);
  BSTR source = textOrNull(failure.source);
  made->SetGUID(interfaceId);
  made->SetDescription(description);
  made->SetSource(source);
  SysFreeString(description);
  SysFreeString(source);
  if (const auto info = made.as<IErrorInfo>()) SetErrorInfo(0, info.get());
  return failure.code;
}

}  // namespace automation::com
