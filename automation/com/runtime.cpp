#include "automation/com/runtime.h"

#include "automation/com/dispatch_object.h"
#include "automation/com/failures.h"
#include "automation/runtime.h"

namespace automation::com {
namespace {

ObjectRef objectNamed(TextView moniker) {
  const auto require = [&](HRESULT code) {
    if (code < 0) failPlain(code, moniker);
  };
  clearErrorObject();
  const OwnedText name(moniker);
  Pointer<IBindCtx> context;
  require(CreateBindCtx(0, context.put()));
  Pointer<IMoniker> parsed;
  ULONG eaten = 0;
  require(MkParseDisplayName(context.get(), name.get(), &eaten, parsed.put()));
  Pointer<IDispatch> object;
  require(parsed->BindToObject(context.get(), nullptr, IID_IDispatch, object.putVoid()));
  return objectOf(object.get());
}

ObjectRef objectOfClass(TextView programmaticId) {
  const auto require = [&](HRESULT code) {
    if (code < 0) failPlain(code, Text(u"Cannot create object ") + Text(programmaticId));
  };
  clearErrorObject();
  const OwnedText name(programmaticId);
  CLSID id{};
  require(CLSIDFromProgID(name.get(), &id));
  Pointer<IDispatch> object;
  require(CoCreateInstance(id, nullptr, CLSCTX_SERVER, IID_IDispatch, object.putVoid()));
  return objectOf(object.get());
}

// The cursor of the calling thread.
class Cursor : public MemberlessObject {
 public:
  Cursor() : MemberlessObject(u"Screen") {}

  Variant read(TextView member, Arguments arguments) override {
    requirePointer(member, arguments);
    return pointer_;
  }

  void write(TextView member, Arguments arguments, const Variant& value) override {
    requirePointer(member, arguments);
    const std::int16_t pointer = toInt16(value);
    if (pointer != kDefault && pointer != kHourglass) {
      throw Failure(380, u"The mouse pointer is 0 or 11 here", source());
    }
    pointer_ = pointer;
    SetCursor(LoadCursorW(nullptr, pointer == kHourglass ? IDC_WAIT : IDC_ARROW));
  }

 private:
  static constexpr std::int16_t kDefault = 0;
  static constexpr std::int16_t kHourglass = 11;

  void requirePointer(TextView member, Arguments arguments) const {
    if (!equalsIgnoringCase(member, u"MousePointer")) failMember(member, source());
    requireArguments(member, arguments, 0, 0, source());
  }

  static thread_local std::int16_t pointer_;
};

thread_local std::int16_t Cursor::pointer_ = kDefault;

std::string toCodePage(TextView text) {
  const auto* const units = reinterpret_cast<const wchar_t*>(text.data());
  const int count = static_cast<int>(text.size());
  if (count == 0) return {};
  // UTF-8 encodes all characters and does not allow the flag or the substitute.
  const bool all = GetACP() == CP_UTF8;
  const DWORD flags = all ? 0 : WC_NO_BEST_FIT_CHARS;
  const char* const substitute = all ? nullptr : "?";
  const int room = WideCharToMultiByte(CP_ACP, flags, units, count, nullptr, 0, substitute, nullptr);
  std::string bytes(static_cast<std::size_t>(room), '\0');
  WideCharToMultiByte(CP_ACP, flags, units, count, bytes.data(), room, substitute, nullptr);
  return bytes;
}

}  // namespace

void bindRuntime() {
  Runtime& runtime = Runtime::process();
  runtime.setFallbacks(objectNamed, objectOfClass);
  runtime.setScreen(std::make_shared<Cursor>());
  setSystemEncoding(toCodePage);
}

namespace {

// At thread exit the C++ runtime for Windows destroys thread_local objects and frees their memory, in the
// order of first use in this module. Registering a destructor first makes destructors run before the memory
// is freed. The runtime calls it like a member function, about which GCC warns for other functions.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wattributes"
void _GLIBCXX_CDTOR_CALLABI destroyNothing(void*) {}
#pragma GCC diagnostic pop
[[gnu::constructor(101)]] void letDestructorsGoFirst() {
  abi::__cxa_thread_atexit(destroyNothing, nullptr, nullptr);
}

}  // namespace

void stayLoaded() {
  HMODULE module = nullptr;
  static const char within = 0;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                     reinterpret_cast<const wchar_t*>(&within), &module);
}

}  // namespace automation::com
