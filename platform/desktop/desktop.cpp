#include "platform/desktop/desktop.h"

#include <memory>
#include <optional>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/servers.h"

namespace platform::desktop {
namespace {

using automation::Arguments;
using automation::equalsIgnoringCase;
using automation::Failure;
using automation::MemberlessObject;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;
using automation::Variant;
using metabase::Metabase;

constexpr TextView kProgrammaticId = u"MARLINSCOPEGLOBALCOM.ICommonFunction";
constexpr TextView kErrorLogPath = u"ErrorLogPath";
constexpr TextView kGetOs = u"getos";
constexpr TextView kVersion = u"MajorIIsVersionNumber";
constexpr TextView kMousePointer = u"MousePointer";
constexpr std::int16_t kVersionOfExports = 6;
constexpr std::int32_t kNoVersion = static_cast<std::int32_t>(0x80070032);

class CommonObject : public MemberlessObject {
 public:
  CommonObject() : MemberlessObject(Text(kProgrammaticId)) {}

  // Late binding may read a function like an indexed property.
  Variant read(TextView member, Arguments arguments) override {
    if (equalsIgnoringCase(member, kGetOs)) return getOs(arguments);
    if (!equalsIgnoringCase(member, kErrorLogPath)) return MemberlessObject::read(member, arguments);
    automation::requireArguments(member, arguments, 0, source());
    return errorLogPath_;
  }

  void write(TextView member, Arguments arguments, const Variant& value) override {
    if (!equalsIgnoringCase(member, kErrorLogPath)) return MemberlessObject::write(member, arguments, value);
    automation::requireArguments(member, arguments, 0, source());
    errorLogPath_ = automation::toText(value);
  }

  Variant call(TextView member, Arguments arguments) override { return read(member, arguments); }

 private:
  Variant getOs(Arguments arguments) const {
    automation::requireArguments(kGetOs, arguments, 1, source());
    const Text server = automation::toText(arguments[0]);
    const auto metabase = metabase::snapshotOf(server);
    const auto version = metabase->property(kVersion);
    std::optional<Metabase::NodeId> asked;
    const auto failAt = [&](std::int32_t number, TextView why) {
      const auto place =
          metabase->location(asked.value_or(metabase->root()), server, automation::toUtf8(kVersion));
      throw Failure(number, automation::fromUtf8(place) + u": " + Text(why), source());
    };
    for (const TextView path : {u"LM/W3SVC/Info", u"LM/MSFTPSVC/Info"}) {
      const auto node = metabase->find(metabase->root(), path);
      if (!node || !version) continue;
      asked = node;
      const Variant value = metabase->read(*node, *version, server);
      if (value.isNull()) continue;
      try {
        return automation::toInt16(value);
      } catch (const Failure& failure) {
        failAt(failure.number(), failure.description());
      }
    }
    if (metabase->isPartialExport()) return kVersionOfExports;
    failAt(kNoVersion,
           u"neither /W3SVC/Info nor /MSFTPSVC/Info has a value, so the server's version is unknown");
    return {};
  }

  Text errorLogPath_;
};

// Shared by all threads; its state is thread-local.
class ScreenObject : public MemberlessObject {
 public:
  ScreenObject() : MemberlessObject(u"Screen") {}

  Variant read(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, kMousePointer)) return MemberlessObject::read(member, arguments);
    automation::requireArguments(member, arguments, 0, source());
    return pointer();
  }

  void write(TextView member, Arguments arguments, const Variant& value) override {
    if (!equalsIgnoringCase(member, kMousePointer)) return MemberlessObject::write(member, arguments, value);
    automation::requireArguments(member, arguments, 0, source());
    pointer() = automation::toInt16(value);
  }

 private:
  static std::int16_t& pointer() {
    thread_local std::int16_t value = 0;
    return value;
  }
};

}  // namespace

ObjectRef makeCommonObject() {
  return std::make_shared<CommonObject>();
}

ObjectRef makeScreenObject() {
  return std::make_shared<ScreenObject>();
}

void registerDesktop() {
  automation::Runtime::process().serveClass(kProgrammaticId, makeCommonObject);
  automation::Runtime::process().setScreen(makeScreenObject());
}

}  // namespace platform::desktop
