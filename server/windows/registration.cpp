#include "server/windows/registration.h"

#include <array>

#include "automation/com/failures.h"
#include "server/windows/module.h"

namespace TORVINFTPAppDataCom {
namespace {

using automation::Text;
using automation::TextView;
using automation::com::Pointer;

constexpr TextView kVersion = u"1.0";

struct Class {
  const Guid& id;
  TextView programmaticId;
};
const std::array kClasses = {Class{kFTPCollectionClassId, kFTPCollectionProgrammaticId},
                             Class{kAppPoolCollectionClassId, kAppPoolCollectionProgrammaticId}};

const wchar_t* systemChars(const Text& text) {
  return reinterpret_cast<const wchar_t*>(text.c_str());
}

Text shown(const Guid& id) {
  std::array<wchar_t, 40> text{};
  StringFromGUID2(systemGuid(id), text.data(), static_cast<int>(text.size()));
  return reinterpret_cast<const char16_t*>(text.data());
}

// Writes a value of a key, the default one if no name is given. Creates the key if it is missing.
bool write(const Text& key, TextView value, const wchar_t* name = nullptr) {
  const Text text(value);
  const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(char16_t));
  return RegSetKeyValueW(HKEY_CLASSES_ROOT, systemChars(key), name, REG_SZ, text.c_str(), size) ==
         ERROR_SUCCESS;
}

bool writeClass(const Class& entered, const Text& path) {
  const Text key = u"CLSID\\" + shown(entered.id);
  const Text name(entered.programmaticId);
  return write(key, name) && write(key + u"\\InprocServer32", path) &&
         write(key + u"\\InprocServer32", u"Apartment", L"ThreadingModel") &&
         write(key + u"\\ProgID", name) && write(key + u"\\TypeLib", shown(kTypeLibraryId)) &&
         write(key + u"\\Version", kVersion) && write(key + u"\\Programmable", {}) && write(name, name) &&
         write(name + u"\\CLSID", shown(entered.id));
}

bool removeKey(const Text& key) {
  const LSTATUS code = RegDeleteTreeW(HKEY_CLASSES_ROOT, systemChars(key));
  return code == ERROR_SUCCESS || code == ERROR_FILE_NOT_FOUND;
}

// Whether the library of the other width is registered. Both widths share the programmatic ids.
bool hasOtherWidth(const Text& key) {
  constexpr REGSAM kOther = sizeof(void*) == 8 ? KEY_WOW64_32KEY : KEY_WOW64_64KEY;
  HKEY found = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, systemChars(key), 0, KEY_READ | kOther, &found) != ERROR_SUCCESS)
    return false;
  RegCloseKey(found);
  return true;
}

bool removeClass(const Class& entered) {
  const Text key = u"CLSID\\" + shown(entered.id);
  const bool own = removeKey(key);
  return (hasOtherWidth(key) || removeKey(Text(entered.programmaticId))) && own;
}

bool writeTypeLibrary(const Text& path) {
  const automation::com::OwnedText file(path);
  return RegisterTypeLib(typeLibrary().get(), file.get(), nullptr) >= 0;
}

bool removeTypeLibrary() {
  constexpr bool kWide = sizeof(void*) == 8;
  const GUID& id = systemGuid(kTypeLibraryId);
  // The entry of the other width is kept.
  const Text entered = u"TypeLib\\" + shown(kTypeLibraryId) + u"\\1.0\\0\\" + (kWide ? u"win64" : u"win32");
  HKEY key = nullptr;
  const LSTATUS found = RegOpenKeyExW(HKEY_CLASSES_ROOT, systemChars(entered), 0, KEY_READ, &key);
  if (found == ERROR_FILE_NOT_FOUND || found == ERROR_PATH_NOT_FOUND) return true;
  if (found == ERROR_SUCCESS) RegCloseKey(key);
  return UnRegisterTypeLib(id, 1, 0, LOCALE_NEUTRAL, kWide ? SYS_WIN64 : SYS_WIN32) >= 0;
}

}  // namespace

HRESULT registerServer() noexcept {
  HRESULT code = SELFREG_E_CLASS;
  try {
    const Text path = modulePath();
    if (writeClass(kClasses[0], path) && writeClass(kClasses[1], path)) {
      code = SELFREG_E_TYPELIB;
      if (writeTypeLibrary(path)) return S_OK;
    }
  } catch (...) {
    // Partial entries are removed below.
  }
  unregisterServer();
  return code;
}

HRESULT unregisterServer() noexcept {
  try {
    bool removed = true;
    for (const Class& entered : kClasses) removed = removeClass(entered) && removed;
    if (!removed) return SELFREG_E_CLASS;
    return removeTypeLibrary() ? S_OK : SELFREG_E_TYPELIB;
  } catch (...) {
    return SELFREG_E_CLASS;
  }
}

}  // namespace TORVINFTPAppDataCom
