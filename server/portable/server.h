// The in-process server: the library's interface to its hosts.
//
// A host either asks the runtime for a class by its programmatic id, once DllRegisterServer has registered
// both, or asks DllGetClassObject for the factory of a class. In both cases it receives an automation object
// and calls its members by name.
#pragma once

#include <cstdint>

#include "automation/object.h"
#include "server/identifiers.h"

namespace TORVINFTPAppDataCom {

// A result code (HRESULT); negative if the call failed.
using ResultCode = std::int32_t;

inline constexpr ResultCode kOk = 0;
inline constexpr ResultCode kNo = 1;  // S_FALSE
inline constexpr ResultCode kNoInterface = static_cast<ResultCode>(0x80004002);
inline constexpr ResultCode kNullPointer = static_cast<ResultCode>(0x80004003);
inline constexpr ResultCode kClassNotAvailable = static_cast<ResultCode>(0x80040111);

// Creates the objects of one class. Owned by the library; the caller never destroys it.
class ClassFactory {
 public:
  // Sets `object` to a new object with the requested interface: IUnknown, IDispatch or the class's default
  // one. Any other returns kNoInterface and a null object.
  virtual ResultCode createInstance(const Guid& interfaceId, automation::ObjectRef& object) = 0;

  // Locks the library against unloading, or unlocks it. Calls are counted.
  virtual ResultCode lockServer(bool lock) = 0;

 protected:
  ~ClassFactory() = default;
};

}  // namespace TORVINFTPAppDataCom

extern "C" {

// Returns kOk if there are no objects and no locks, else kNo.
TORVINFTPAppDataCom::ResultCode DllCanUnloadNow();

// Returns the factory of a class, as a TORVINFTPAppDataCom::ClassFactory*, in `factory`. The requested
// interface is that of a class factory or IUnknown. On failure `factory` is null.
TORVINFTPAppDataCom::ResultCode DllGetClassObject(const TORVINFTPAppDataCom::Guid& classId,
                                                  const TORVINFTPAppDataCom::Guid& interfaceId,
                                                  void** factory);

// Adds both programmatic ids to the runtime's table, or removes them.
TORVINFTPAppDataCom::ResultCode DllRegisterServer();
TORVINFTPAppDataCom::ResultCode DllUnregisterServer();
}
