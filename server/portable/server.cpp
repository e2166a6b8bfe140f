#include "server/portable/server.h"

#include <atomic>

#include "automation/runtime.h"
#include "server/dispatch.h"

#ifdef _WIN32
#define TORVIN_EXPORT __declspec(dllexport)
#else
#define TORVIN_EXPORT __attribute__((visibility("default")))
#endif

namespace TORVINFTPAppDataCom {
namespace {

std::atomic<long> serverLocks = 0;

class Factory final : public ClassFactory {
 public:
  Factory(const Guid& defaultInterfaceId, automation::ObjectRef (*create)())
      : defaultInterfaceId_(defaultInterfaceId), create_(create) {}

  ResultCode createInstance(const Guid& interfaceId, automation::ObjectRef& object) override {
    object = nullptr;
    if (interfaceId != kUnknownInterfaceId && interfaceId != kDispatchInterfaceId &&
        interfaceId != defaultInterfaceId_) {
      return kNoInterface;
    }
    object = create_();
    return kOk;
  }

  ResultCode lockServer(bool lock) override {
    serverLocks += lock ? 1 : -1;
    return kOk;
  }

 private:
  Guid defaultInterfaceId_;
  automation::ObjectRef (*create_)();
};

ClassFactory& FTPCollectionFactory() {
  static Factory factory(kFTPCollectionInterfaceId, &CreateFTPCollection);
  return factory;
}

ClassFactory& AppPoolCollectionFactory() {
  static Factory factory(kAppPoolCollectionInterfaceId, &CreateAppPoolCollection);
  return factory;
}

automation::ObjectRef CreateFrom(ClassFactory& factory) {
  automation::ObjectRef object;
  factory.createInstance(kDispatchInterfaceId, object);
  return object;
}

}  // namespace
}  // namespace TORVINFTPAppDataCom

using namespace TORVINFTPAppDataCom;

extern "C" {

TORVIN_EXPORT ResultCode DllCanUnloadNow() {
  return LivingObjects() == 0 && serverLocks == 0 ? kOk : kNo;
}

TORVIN_EXPORT ResultCode DllGetClassObject(const Guid& classId, const Guid& interfaceId, void** factory) {
  if (factory == nullptr) return kNullPointer;
  *factory = nullptr;
  ClassFactory* found = nullptr;
  if (classId == kFTPCollectionClassId) found = &FTPCollectionFactory();
  if (classId == kAppPoolCollectionClassId) found = &AppPoolCollectionFactory();
  if (found == nullptr) return kClassNotAvailable;
  if (interfaceId != kClassFactoryInterfaceId && interfaceId != kUnknownInterfaceId) return kNoInterface;
  *factory = found;
  return kOk;
}

TORVIN_EXPORT ResultCode DllRegisterServer() {
  automation::Runtime& runtime = automation::Runtime::process();
  runtime.serveClass(kFTPCollectionProgrammaticId, [] { return CreateFrom(FTPCollectionFactory()); });
  runtime.serveClass(kAppPoolCollectionProgrammaticId, [] { return CreateFrom(AppPoolCollectionFactory()); });
  return kOk;
}

TORVIN_EXPORT ResultCode DllUnregisterServer() {
  automation::Runtime& runtime = automation::Runtime::process();
  runtime.serveClass(kFTPCollectionProgrammaticId, nullptr);
  runtime.serveClass(kAppPoolCollectionProgrammaticId, nullptr);
  return kOk;
}
}
