// How every operation behind the seam fails: by throwing a Failure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "automation/text.h"
#include "automation/visibility.h"

namespace automation {

// The numbers of failures, as automation programmers know them: the small ones are those of the language
// runtime, those from 3000 on of database objects, the negative ones result codes (HRESULT) as signed 32-bit
// integers. An object may also fail with numbers of its own, which are defined in its own folder.
namespace number {
// Raised by a step of the caller's own: a conversion, an index, a reference that holds nothing.
constexpr std::int32_t kOverflow = 6;
constexpr std::int32_t kSubscriptOutOfRange = 9;
constexpr std::int32_t kTypeMismatch = 13;
constexpr std::int32_t kObjectNotSet = 91;
constexpr std::int32_t kInvalidUseOfNull = 94;

// Given to what isn't a Failure where a guard of the component catches it: lack of memory, anything else.
constexpr std::int32_t kOutOfMemory = 7;
constexpr std::int32_t kInternal = 51;

// Raised by whoever writes a file: a log of the component.
constexpr std::int32_t kDeviceInputOutput = 57;
constexpr std::int32_t kDiskFull = 61;
constexpr std::int32_t kPathFileAccess = 75;
constexpr std::int32_t kPathNotFound = 76;

// Raised by the runtime: nobody creates such an object, nobody serves such a moniker. The latter is also
// raised by whoever serves it, for a malformed moniker.
constexpr std::int32_t kCannotCreateObject = 429;
constexpr std::int32_t kMonikerSyntax = static_cast<std::int32_t>(0x800401E4);

// Raised by any object: no such member, and arguments that don't fit it.
constexpr std::int32_t kMemberNotSupported = 438;
constexpr std::int32_t kWrongArguments = 450;

// Raised by objects that hold rows: not in this state, and no such column.
constexpr std::int32_t kNotAllowedInContext = 3219;
constexpr std::int32_t kItemNotInCollection = 3265;
}  // namespace number

// A failed operation: a number, a description for a person, and the name of whoever failed. A source that is
// empty says that the failure arose in the caller's own step and in no object.
class AUTOMATION_VISIBLE Failure : public std::exception {
 public:
  Failure(std::int32_t number, Text description, Text source = {});

  std::int32_t number() const noexcept { return number_; }
  const Text& description() const noexcept { return description_; }
  const Text& source() const noexcept { return source_; }

  // Number in hexadecimal, description and source as UTF-8, for a debugger or a test's output.
  const char* what() const noexcept override;

 private:
  std::int32_t number_;
  Text description_;
  Text source_;
  std::string what_;
};

// The failures that a caller's own step can have, with the wording that they have everywhere.
[[noreturn]] void failOverflow();
[[noreturn]] void failSubscript();
[[noreturn]] void failTypeMismatch();
[[noreturn]] void failObjectNotSet();
[[noreturn]] void failNull();
[[noreturn]] void failMember(TextView member, TextView source);
[[noreturn]] void failArguments(TextView member, std::size_t taken, std::size_t given, TextView source);

}  // namespace automation
