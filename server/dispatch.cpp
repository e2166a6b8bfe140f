#include "server/dispatch.h"

#include <atomic>
#include <span>

#include "apppool/AppPoolCollection.h"
#include "ftp/FTPCollection.h"

namespace TORVINFTPAppDataCom {
namespace {

using automation::Arguments;
using automation::MemberlessObject;

constexpr TextView kSource = u"TORVINFTPAppDataCom";

std::atomic<long> livingObjects = 0;

// A method of a class: its name, the numbers of required and of accepted arguments, and its call.
template <typename Class>
struct Method {
  TextView name;
  std::size_t needed;
  std::size_t taken;
  Variant (*invoke)(Class& object, Arguments arguments);
};

// Converters of the caller's arguments to the types of the interface follow.

// Refers to the caller's text if the argument is one, else holds its value converted to text. An omitted
// argument is empty.
class TextArgument {
 public:
  explicit TextArgument(Variant* argument) : text_(argument != nullptr ? argument->as<Text>() : nullptr) {
    if (text_ != nullptr) return;
    if (argument != nullptr) converted_ = toText(*argument);
    text_ = &converted_;
  }
  TextArgument(const TextArgument&) = delete;
  TextArgument& operator=(const TextArgument&) = delete;

  operator Text&() { return *text_; }

 private:
  Text converted_;
  Text* text_;
};

TextArgument text(Arguments arguments, std::size_t index) {
  return TextArgument(index < arguments.size() ? &arguments[index] : nullptr);
}

VariantBool boolean(Arguments arguments, std::size_t index) {
  return automation::toBool(arguments[index]) ? True : False;
}

// Methods of both classes.
template <typename Class>
Variant setErrorLogPath(Class& object, Arguments arguments) {
  object.SetErrorLogPath(text(arguments, 0), text(arguments, 1));
  return {};
}

template <typename Class>
Variant writeToLog(Class& object, Arguments arguments) {
  object.WriteToLog(toInt32(arguments[0]), text(arguments, 1), text(arguments, 2), text(arguments, 3));
  return {};
}

template <typename Class>
Variant setProcessStatusUpdater(Class& object, Arguments arguments) {
  ObjectRef statusBar = toObject(arguments[0]);
  ObjectRef progressBar = toObject(arguments[1]);
  ObjectRef processCount = toObject(arguments[2]);
  object.SetProcessStatusUpdater(statusBar, progressBar, processCount);
  return {};
}

// In the order of the interface.
constexpr Method<FTPCollection> kFTPMethods[] = {
    {u"GetPropEnabledStatus", 1, 1,
     [](FTPCollection& object, Arguments arguments) -> Variant {
       return object.GetPropEnabledStatus(toInt16(arguments[0]));
     }},
    {u"GetRootVirtualDirectory", 4, 4,
     [](FTPCollection& object, Arguments arguments) -> Variant {
       object.GetRootVirtualDirectory(text(arguments, 0), text(arguments, 1), text(arguments, 2),
                                      text(arguments, 3));
       return {};
     }},
    {u"GetChildVirtualDirectories", 4, 4,
     [](FTPCollection& object, Arguments arguments) -> Variant {
       TextArgument serverName = text(arguments, 0);
       TextArgument id = text(arguments, 1);
       TextArgument path = text(arguments, 2);
       TextArgument database = text(arguments, 3);
       object.GetChildVirtualDirectories(serverName, id, path, database);
       return {};
     }},
    {u"GetFTPSitesCount", 1, 1,
     [](FTPCollection& object, Arguments arguments) -> Variant {
       TextArgument serverName = text(arguments, 0);
       return object.GetFTPSitesCount(serverName);
     }},
    {u"SetErrorLogPath", 2, 2, &setErrorLogPath<FTPCollection>},
    {u"WriteToLog", 4, 4, &writeToLog<FTPCollection>},
    {u"SetProcessStatusUpdater", 3, 3, &setProcessStatusUpdater<FTPCollection>},
    {u"GenerateFTPSiteInfo", 2, 2,
     [](FTPCollection& object, Arguments arguments) -> Variant {
       return object.GenerateFTPSiteInfo(text(arguments, 0), text(arguments, 1));
     }},
    {u"GenerateFTPVirDirInfo", 1, 1,
     [](FTPCollection& object, Arguments arguments) -> Variant {
       return object.GenerateFTPVirDirInfo(text(arguments, 0));
     }},
    {u"GetFTPPropertyInfo", 4, 5,
     [](FTPCollection& object, Arguments arguments) -> Variant {
       object.GetFTPPropertyInfo(text(arguments, 0), text(arguments, 1), text(arguments, 2),
                                 boolean(arguments, 3), text(arguments, 4));
       return {};
     }},
};

constexpr Method<AppPoolCollection> kAppPoolMethods[] = {
    {u"GetMemoryRecyclingProperties", 4, 4,
     [](AppPoolCollection& object, Arguments arguments) -> Variant {
       ObjectRef pool = toObject(arguments[1]);
       ObjectRef connection = toObject(arguments[2]);
       ObjectRef recordset = toObject(arguments[3]);
       object.GetMemoryRecyclingProperties(text(arguments, 0), pool, connection, recordset);
       return {};
     }},
    {u"GetWebServiceExtension", 2, 2,
     [](AppPoolCollection& object, Arguments arguments) -> Variant {
       object.GetWebServiceExtension(text(arguments, 0), text(arguments, 1));
       return {};
     }},
    {u"GetAppPoolsCount", 2, 2,
     [](AppPoolCollection& object, Arguments arguments) -> Variant {
       return object.GetAppPoolsCount(text(arguments, 0), text(arguments, 1));
     }},
    {u"SetErrorLogPath", 2, 2, &setErrorLogPath<AppPoolCollection>},
    {u"WriteToLog", 4, 4, &writeToLog<AppPoolCollection>},
    {u"EnumAppsInPool", 3, 3,
     [](AppPoolCollection& object, Arguments arguments) -> Variant {
       object.EnumAppsInPool(text(arguments, 0), text(arguments, 1), text(arguments, 2));
       return {};
     }},
    {u"SetProcessStatusUpdater", 3, 3, &setProcessStatusUpdater<AppPoolCollection>},
    {u"GetAppPoolPropertyInfo", 4, 5,
     [](AppPoolCollection& object, Arguments arguments) -> Variant {
       object.GetAppPoolPropertyInfo(text(arguments, 0), text(arguments, 1), text(arguments, 2),
                                     boolean(arguments, 3), text(arguments, 4));
       return {};
     }},
    {u"GetTotalAppPools", 1, 1,
     [](AppPoolCollection& object, Arguments arguments) -> Variant {
       TextArgument serverName = text(arguments, 0);
       return object.GetTotalAppPools(serverName);
     }},
};

template <typename Class>
class Dispatch final : public MemberlessObject {
 public:
  explicit Dispatch(std::span<const Method<Class>> methods)
      : MemberlessObject(Text(kSource)), methods_(methods) {
    ++livingObjects;
  }
  ~Dispatch() override { --livingObjects; }
  Dispatch(const Dispatch&) = delete;
  Dispatch& operator=(const Dispatch&) = delete;

  // A method may be read as well: late binding requests the result of a function either way.
  Variant read(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, kErrorLogPath)) return call(member, arguments);
    automation::requireArguments(member, arguments, 0, 0, kSource);
    return object_.mstrErrorLogPath;
  }

  void write(TextView member, Arguments arguments, const Variant& value) override {
    if (!equalsIgnoringCase(member, kErrorLogPath)) automation::failMember(member, kSource);
    automation::requireArguments(member, arguments, 0, 0, kSource);
    object_.mstrErrorLogPath = toText(value);
  }

  Variant call(TextView member, Arguments arguments) override {
    for (const Method<Class>& method : methods_) {
      if (!equalsIgnoringCase(member, method.name)) continue;
      automation::requireArguments(member, arguments, method.needed, method.taken, kSource);
      return method.invoke(object_, arguments);
    }
    automation::failMember(member, kSource);
  }

 private:
  static constexpr TextView kErrorLogPath = u"mstrErrorLogPath";

  std::span<const Method<Class>> methods_;
  Class object_;
};

}  // namespace

ObjectRef CreateFTPCollection() {
  return std::make_shared<Dispatch<FTPCollection>>(kFTPMethods);
}

ObjectRef CreateAppPoolCollection() {
  return std::make_shared<Dispatch<AppPoolCollection>>(kAppPoolMethods);
}

long LivingObjects() {
  return livingObjects;
}

}  // namespace TORVINFTPAppDataCom
