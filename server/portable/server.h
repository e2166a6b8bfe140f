// The in-process server: what the library offers to whoever loads it.
//
// A host either asks the runtime for a class by its programmatic id, once DllRegisterServer has entered both,
// or asks DllGetClassObject for a class's factory. Either way it gets an automation object and calls its
// members by name.
#pragma once

#include <cstdint>

#include "automation/object.h"
#include "server/identifiers.h"

namespace TORVINFTPAppDataCom {

// A result code (HRESULT); negative where the call failed.
using ResultCode = std::int32_t;

inline constexpr ResultCode kOk = 0;
inline constexpr ResultCode kNo = 1;  // S_FALSE
inline constexpr ResultCode kNoInterface = static_cast<ResultCode>(0x80004002);
inline constexpr ResultCode kNullPointer = static_cast<ResultCode>(0x80004003);
inline constexpr ResultCode kClassNotAvailable = static_cast<ResultCode>(0x80040111);

// Creates the objects of one class. Owned by the library; never destroyed by the caller.
class ClassFactory {
 public:
  // Makes `object` a new object with the interface asked for: IUnknown, IDispatch or the class's default one.
  // Any other gives kNoInterface and a null object.
  virtual ResultCode createInstance(const Guid& interfaceId, automation::ObjectRef& object) = 0;

  // Keeps the library from being unloaded, or lets it go again. Calls are counted.
  virtual ResultCode lockServer(bool lock) = 0;

 protected:
  ~ClassFactory() = default;
};

}  // namespace TORVINFTPAppDataCom

extern "C" {

// kOk when no object lives and no lock holds, else kNo.
TORVINFTPAppDataCom::ResultCode DllCanUnloadNow();

// Returns the factory of a class, as a TORVINFTPAppDataCom::ClassFactory*, in `factory`. The interface asked
// for is that of a class factory or IUnknown. On failure `factory` holds null.
TORVINFTPAppDataCom::ResultCode DllGetClassObject(const TORVINFTPAppDataCom::Guid& classId,
                                                  const TORVINFTPAppDataCom::Guid& interfaceId,
                                                  void** factory);

// Enters both programmatic ids in the runtime's table, or takes them out.
TORVINFTPAppDataCom::ResultCode DllRegisterServer();
TORVINFTPAppDataCom::ResultCode DllUnregisterServer();
}
