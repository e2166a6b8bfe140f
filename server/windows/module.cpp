#include "server/windows/module.h"

#include "automation/com/failures.h"

namespace TORVINFTPAppDataCom {

automation::Text modulePath() {
  HMODULE module = nullptr;
  constexpr DWORD kFlags =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  static const char within = 0;
  if (GetModuleHandleExW(kFlags, reinterpret_cast<const wchar_t*>(&within), &module) == 0) {
    automation::com::failPlain(HRESULT_FROM_WIN32(GetLastError()), u"the library's path");
  }
  constexpr std::size_t kLongestPath = 32768;
  automation::Text path(MAX_PATH, u'\0');
  for (;;) {
    const DWORD length =
        GetModuleFileNameW(module, reinterpret_cast<wchar_t*>(path.data()), static_cast<DWORD>(path.size()));
    if (length == 0 || path.size() > kLongestPath) {
      automation::com::failPlain(HRESULT_FROM_WIN32(GetLastError()), u"the library's path");
    }
    if (length < path.size()) {
      path.resize(length);
      return path;
    }
    path.resize(path.size() * 2);
  }
}

automation::com::Pointer<ITypeLib> typeLibrary() {
  const automation::com::OwnedText path(modulePath());
  automation::com::Pointer<ITypeLib> library;
  const HRESULT code = LoadTypeLibEx(path.get(), REGKIND_NONE, library.put());
  if (code < 0) automation::com::failPlain(code, path.view());
  return library;
}

}  // namespace TORVINFTPAppDataCom
