// Late binding through COM: values in both directions, and foreign objects.

#include <cstdlib>
#include <limits>
#include <new>

#include "automation/com/exposed_object.h"
#include "automation/com/runtime.h"
#include "automation/runtime.h"
#include "tests/windows/support.h"

// Allocations fail on request.
static long allocationsLeft = -1;

// The compiler reports their inlined calls as a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (allocationsLeft >= 0 && allocationsLeft-- == 0) throw std::bad_alloc();
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace test {
namespace {

TEST(Values, ConvertToTextAndInteger) {
  OwnedText text(TextView(u"a\0b", 3));
  DATE noon = 0;
  ASSERT_GE(VarDateFromStr(const_cast<wchar_t*>(L"2003-03-24 12:00:00"), LOCALE_USER_DEFAULT, 0, &noon), 0);
  OwnedText noonText;
  ASSERT_GE(VarBstrFromDate(noon, LOCALE_USER_DEFAULT, 0, noonText.address()), 0);
  CY money{};
  money.int64 = 12'345'678;
  const auto decimal = [](TextView digits) {
    OwnedText written(digits);
    VARIANT made;
    EXPECT_GE(VarDecFromStr(written.get(), MAKELCID(0x409, 0), 0, &V_DECIMAL(&made)), 0);
    V_VT(&made) = VT_DECIMAL;
    return made;
  };
  // A value that doesn't convert to an integer has the negated number of its failure.
  const struct {
    VARIANT value;
    Text text;
    std::int32_t integer;
  } cases[] = {
      {valueOf(VT_I1, std::int8_t{-128}), u"-128", -128},
      {valueOf(VT_UI1, std::uint8_t{255}), u"255", 255},
      {valueOf(VT_I2, std::int16_t{-32768}), u"-32768", -32768},
      {valueOf(VT_UI2, std::uint16_t{65535}), u"65535", 65535},
      {valueOf(VT_I4, std::int32_t{-2147483647}), u"-2147483647", -2147483647},
      {valueOf(VT_INT, std::int32_t{7}), u"7", 7},
      {valueOf(VT_UI4, std::uint32_t{2147483647}), u"2147483647", 2147483647},
      {valueOf(VT_UI4, std::uint32_t{4294967295}), u"4294967295", -6},
      {valueOf(VT_I8, std::int64_t{-5}), u"-5", -5},
      {valueOf(VT_I8, std::int64_t{1} << 40), u"1099511627776", -6},
      {valueOf(VT_UI8, std::uint64_t{1} << 40), u"1099511627776", -6},
      {valueOf(VT_I8, std::int64_t{-1234567890123456}), u"-1234567890123456", -6},
      {valueOf(VT_UI8, ~std::uint64_t{0}), u"18446744073709551615", -6},
      {valueOf(VT_R8, 0.00001), u"0.00001", 0},
      {valueOf(VT_R8, 1e20), u"100000000000000000000", -6},
      {valueOf(VT_R4, 0.1F), u"0.1", 0},
      {valueOf(VT_R8, 2.5), u"2.5", 2},
      {valueOf(VT_R8, 3.5), u"3.5", 4},
      {valueOf(VT_R8, 2147483648.0), u"2147483648", -6},
      {valueOf(VT_CY, money), u"1234.5678", 1235},
      {valueOf(VT_CY, std::numeric_limits<std::int64_t>::max()), u"922337203685477.5807", -6},
      {decimal(u"12.25"), u"12.25", 12},
      {decimal(u"-3"), u"-3", -3},
      {decimal(u"0.00001"), u"0.00001", 0},
      {decimal(u"1.23456789012345678"), u"1.23456789012345678", 1},
      {decimal(u"12345678901234567890.5"), u"12345678901234567890.5", -6},
      {valueOf(VT_DATE, noon), Text(noonText.view()), -13},
      {valueOf(VT_BOOL, VARIANT_TRUE), u"True", -1},
      {valueOf(VT_BSTR, text.get()), Text(u"a\0b", 3), -13},
      {valueOf(VT_BSTR, BSTR{}), u"", -13},
      {valueOf(VT_EMPTY, 0), u"", 0},
      {valueOf(VT_ERROR, SCODE{DISP_E_PARAMNOTFOUND}), u"", 0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE("type " + std::to_string(V_VT(&each.value)) + ", " + toUtf8(each.text));
    VARIANT outer;
    V_VT(&outer) = VT_BYREF | VT_VARIANT;
    V_VARIANTREF(&outer) = const_cast<VARIANT*>(&each.value);
    VARIANT inner = each.value;
    V_VT(&inner) |= VT_BYREF;
    V_BYREF(&inner) = const_cast<LONGLONG*>(&V_I8(&each.value));
    const bool hasReference = V_VT(&each.value) != VT_EMPTY && V_VT(&each.value) != VT_DECIMAL;
    const VARIANT& last = hasReference ? inner : each.value;
    for (const VARIANT& form : {each.value, outer, last}) {
      const Variant value = com::fromSystem(form);
      EXPECT_EQ(toText(value), each.text);
      std::int32_t integer = 0;
      const std::int32_t failed = failureNumber([&] { integer = toInt32(value); });
      EXPECT_EQ(failed != 0 ? -failed : integer, each.integer);
    }
  }
  EXPECT_TRUE(com::fromSystem(valueOf(VT_NULL, 0)).isNull());
  EXPECT_EQ(toObject(com::fromSystem(valueOf(VT_DISPATCH, nullptr))), nullptr);
}

TEST(Values, FailWithTypeMismatchForUnsupportedTypes) {
  SAFEARRAYBOUND bounds[] = {{2, 0}, {2, 0}};
  const com::OwnedArray square(SafeArrayCreate(VT_VARIANT, 2, bounds));
  VARIANT itself;
  V_VT(&itself) = VT_BYREF | VT_VARIANT;
  V_VARIANTREF(&itself) = &itself;
  for (const VARIANT& value : {valueOf(VT_ARRAY | VT_VARIANT, square.get()), valueOf(VT_ERROR, SCODE{E_FAIL}),
                               valueOf(VT_RECORD, nullptr), valueOf(VT_BYREF | VT_I4, nullptr), itself}) {
    EXPECT_EQ(failureNumber([&] { com::fromSystem(value); }), 13) << V_VT(&value);
  }
}

TEST(Values, KeepArrayBoundsAndNesting) {
  Array inner;
  inner.elements = {Text(u"x"), 5, Null, true};
  inner.lowerBound = 3;
  Array outer;
  outer.elements = {inner, Array(), 1.5};
  const OwnedValue made = com::toSystem(outer);
  const Variant back = com::fromSystem(made.get());
  EXPECT_EQ(lowerBound(back), 0);
  EXPECT_EQ(upperBound(back), 2);
  EXPECT_EQ(lowerBound(element(back, 0)), 3);
  EXPECT_EQ(toText(element(element(back, 0), 3)), u"x");
  EXPECT_TRUE(element(element(back, 0), 5).isNull());
  EXPECT_EQ(upperBound(element(back, 1)), -1);

  const com::OwnedArray bytes(SafeArrayCreateVector(VT_UI1, 1, 2));
  LONG at = 2;
  BYTE value = 200;
  SafeArrayPutElement(bytes.get(), &at, &value);
  const Variant read = com::fromSystem(valueOf(VT_ARRAY | VT_UI1, bytes.get()));
  EXPECT_EQ(toInt32(element(read, 2)), 200);
  EXPECT_EQ(failureNumber([&] { element(read, 0); }), 9);
}

// Foreign objects provided by the system.
TEST(Foreign, DictionariesSupportIndexedPropertiesAndFailures) {
  const ObjectRef dictionary = CreateObject(u"Scripting.Dictionary");
  call(dictionary, u"Add", u"one", 1);
  writeIndexed(dictionary, u"Item", u"two", u"zwei");
  EXPECT_EQ(toInt32(read(dictionary, u"count")), 2);
  EXPECT_EQ(toText(readIndexed(dictionary, u"ITEM", u"two")), u"zwei");
  EXPECT_EQ(upperBound(call(dictionary, u"Keys")), 1);
  EXPECT_EQ(failureNumber([&] { call(dictionary, u"Add", u"one", 1); }), 457) << "the key is there already";
  EXPECT_EQ(failureNumber([&] { call(dictionary, u"NoSuchMember"); }), 438);
  // An object that is passed back is the original, not a wrapper.
  call(dictionary, u"Add", u"own", dictionary);
  const auto own =
      std::dynamic_pointer_cast<com::DispatchObject>(toObject(readIndexed(dictionary, u"Item", u"own")));
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(own->dispatch(), std::dynamic_pointer_cast<com::DispatchObject>(dictionary)->dispatch());
  call(dictionary, u"RemoveAll");
}

TEST(Foreign, FoldersAreEnumerated) {
  const ObjectRef files = CreateObject(u"Scripting.FileSystemObject");
  const ObjectRef folder = toObject(call(files, u"GetFolder", u"C:\\windows"));
  const auto walk = children(toObject(read(folder, u"SubFolders")));
  std::size_t count = 0;
  bool found = false;
  while (const ObjectRef child = walk->next()) {
    ++count;
    found = found || equalsIgnoringCase(toText(read(child, u"Name")), u"system32");
  }
  EXPECT_TRUE(found) << count;
  EXPECT_EQ(failureNumber([&] { call(files, u"GetFolder", u"C:\\nowhere"); }), 76);
}

TEST(Foreign, XmlErrorsAreReported) {
  const ObjectRef document = CreateObject(u"MSXML2.DOMDocument");
  EXPECT_TRUE(toBool(call(document, u"loadXML", u"<a><b/></a>")));
  const auto failed = failureOf([&] { call(document, u"selectNodes", u"//["); });
  EXPECT_NE(failed.first, 0);
  EXPECT_NE(failed.second, "");
}

// An unknown class and an unknown moniker: reported with their names, without the text of an earlier failure.
TEST(Foreign, MissingClassesAndMonikersAreReported) {
  OwnedText stale(u"stale words");
  Pointer<ICreateErrorInfo> made;
  ASSERT_GE(CreateErrorInfo(made.put()), 0);
  made->SetDescription(stale.get());
  SetErrorInfo(0, made.as<IErrorInfo>().get());
  const auto noClass = failureOf([] { CreateObject(u"No.SuchClass"); });
  EXPECT_EQ(noClass.first, 429);
  EXPECT_NE(noClass.second.find("No.SuchClass"), std::string::npos) << noClass.second;
  SetErrorInfo(0, made.as<IErrorInfo>().get());
  const auto noMoniker = failureOf([] { GetObject(u"LDAP://unknown"); });
  EXPECT_LT(noMoniker.first, 0);
  EXPECT_NE(noMoniker.second.find("LDAP://unknown"), std::string::npos) << noMoniker.second;
}

// The system's own WMI, queried as the component does. Runs before the test server registers the moniker's
// name.
TEST(Management, QueriesTheSystem) {
  const ObjectRef services = GetObject(u"winmgmts:{authenticationLevel=pktPrivacy}\\\\.\\root\\cimv2");
  const auto rows = children(toObject(call(services, u"ExecQuery", u"Select * from Win32_OperatingSystem")));
  const ObjectRef system = rows->next();
  ASSERT_NE(system, nullptr);
  EXPECT_NE(toText(read(system, u"Caption")), u"");
  EXPECT_EQ(rows->next(), nullptr);
  EXPECT_NE(failureNumber([&] { read(system, u"NoSuchProperty"); }), 0);
  EXPECT_LT(failureNumber(
                [] { GetObject(u"winmgmts:{authenticationLevel=pktPrivacy}\\\\.\\root\\microsoftiisv2"); }),
            0);
}

TEST(Foreign, ScreenSetsTheThreadsCursor) {
  write(Screen(), u"mousepointer", 11);
  EXPECT_EQ(toInt32(read(Screen(), u"MousePointer")), 11);
  write(Screen(), u"MousePointer", 0);
  EXPECT_EQ(toInt32(read(Screen(), u"MousePointer")), 0);
  EXPECT_NE(failureNumber([] { write(Screen(), u"MousePointer", 5); }), 0);
}

// An object of ours, callable by any client.
class Probe : public MemberlessObject {
 public:
  Probe() : MemberlessObject(u"Probe") {}
  Variant read(TextView member, Arguments arguments) override {
    if (!equalsIgnoringCase(member, u"Value")) return MemberlessObject::read(member, arguments);
    return value_;
  }
  void write(TextView, Arguments, const Variant& value) override { value_ = value; }
  Variant call(TextView member, Arguments arguments) override {
    if (equalsIgnoringCase(member, u"Fill")) {
      arguments[0] = Text(u"filled");
      return 1;
    }
    if (equalsIgnoringCase(member, u"Fail")) throw Failure(toInt32(arguments[0]), u"on purpose", u"Probe");
    if (equalsIgnoringCase(member, u"Lack")) throw std::bad_alloc();
    if (equalsIgnoringCase(member, u"Odd")) throw 5;
    return MemberlessObject::call(member, arguments);
  }

 private:
  Variant value_;
};

TEST(Exposed, PassesReferencesAndFailuresBothWays) {
  const auto dispatch = com::dispatchOf(std::make_shared<Probe>());
  const ObjectRef outside = std::make_shared<com::DispatchObject>(dispatch.get());
  Variant empty;
  Variant text = Text(u"before");
  EXPECT_EQ(toInt32(callByReference(outside, u"Fill", empty)), 1);
  EXPECT_EQ(toText(empty), u"filled");
  callByReference(outside, u"Fill", text);
  EXPECT_EQ(toText(text), u"filled");
  for (const std::int32_t number : {1, 13, 3219, 65535, -2147467259, static_cast<std::int32_t>(0x800401E4)}) {
    try {
      call(outside, u"Fail", number);
      ADD_FAILURE() << number;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.number(), number);
      EXPECT_EQ(failure.description(), u"on purpose");
      EXPECT_EQ(failure.source(), u"Probe");
    }
  }
  EXPECT_THROW(call(outside, u"Lack"), std::bad_alloc);
  EXPECT_EQ(failureNumber([&] { call(outside, u"Odd"); }), 51);
  EXPECT_EQ(failureNumber([&] { call(outside, u"Nothing"); }), 438);
  write(outside, u"Value", outside);
  EXPECT_NE(toObject(read(outside, u"Value")), nullptr);
  write(outside, u"Value", Null);
}

TEST(Exposed, ReportsOutOfMemoryAnywhere) {
  const auto dispatch = com::dispatchOf(std::make_shared<Probe>());
  wchar_t* name = const_cast<wchar_t*>(L"Fill");
  DISPID number = 0;
  ASSERT_EQ(dispatch->GetIDsOfNames(IID_NULL, &name, 1, 0, &number), S_OK);
  const OwnedText text(u"a text that is too long to be kept without memory of its own");
  VARIANT argument = valueOf(VT_BSTR, text.get());
  DISPPARAMS parameters{&argument, nullptr, 1, 0};
  bool struck = true;
  int calls = 0;
  for (; struck; ++calls) {
    OwnedValue result;
    OwnedException exception;
    allocationsLeft = calls;
    const HRESULT code = dispatch->Invoke(number, IID_NULL, 0, DISPATCH_METHOD, &parameters, &result.get(),
                                          &exception.get(), nullptr);
    struck = allocationsLeft < 0;
    allocationsLeft = -1;
    EXPECT_EQ(code, struck ? E_OUTOFMEMORY : S_OK) << calls;
  }
  EXPECT_GT(calls, 3);
}

class Environment : public testing::Environment {
 public:
  void SetUp() override {
    ASSERT_GE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), 0);
    com::bindRuntime();
  }
};
const auto* const environment = testing::AddGlobalTestEnvironment(new Environment);

}  // namespace
}  // namespace test
