// The exception that every automation operation throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "automation/text.h"
#include "automation/visibility.h"

namespace automation {

// Failure numbers of automation: small ones are those of the language runtime, those from 3000 on of database
// objects, negative ones are result codes (HRESULT) as signed 32-bit integers. Numbers specific to an object
// are defined in its own folder.
namespace number {
// Raised in the caller itself: a conversion, an index, a null reference.
constexpr std::int32_t kOverflow = 6;
constexpr std::int32_t kSubscriptOutOfRange = 9;
constexpr std::int32_t kTypeMismatch = 13;
constexpr std::int32_t kObjectNotSet = 91;
constexpr std::int32_t kInvalidUseOfNull = 94;

// Used by the component's guards for exceptions other than Failure: std::bad_alloc, and any other.
constexpr std::int32_t kOutOfMemory = 7;
constexpr std::int32_t kInternal = 51;

// Raised when writing a file, such as a log of the component.
constexpr std::int32_t kDeviceInputOutput = 57;
constexpr std::int32_t kDiskFull = 61;
constexpr std::int32_t kPathFileAccess = 75;
constexpr std::int32_t kPathNotFound = 76;

// Raised by the runtime: no server for a programmatic id, no server for a moniker. The latter is also raised
// by moniker servers for a malformed moniker.
constexpr std::int32_t kCannotCreateObject = 429;
constexpr std::int32_t kMonikerSyntax = static_cast<std::int32_t>(0x800401E4);

// Raised by any object: no such member, and wrong arguments.
constexpr std::int32_t kMemberNotSupported = 438;
constexpr std::int32_t kWrongArguments = 450;

// Raised by objects with rows: wrong state, and no such column.
constexpr std::int32_t kNotAllowedInContext = 3219;
constexpr std::int32_t kItemNotInCollection = 3265;
}  // namespace number

// A failed operation: a number, a description for people, and the name of the object that failed, empty if
// the failure was raised in the caller itself.
class AUTOMATION_VISIBLE Failure : public std::exception {
 public:
  Failure(std::int32_t number, Text description, Text source = {});

  std::int32_t number() const noexcept { return number_; }
  const Text& description() const noexcept { return description_; }
  const Text& source() const noexcept { return source_; }

  // Number in hexadecimal, description and source in UTF-8, for debugging.
  const char* what() const noexcept override;

 private:
  std::int32_t number_;
  Text description_;
  Text source_;
  std::string what_;
};

// Throw the failures of the language runtime, with their fixed texts, and those for members and arguments.
[[noreturn]] void failOverflow();
[[noreturn]] void failSubscript();
[[noreturn]] void failTypeMismatch();
[[noreturn]] void failObjectNotSet();
[[noreturn]] void failNull();
[[noreturn]] void failMember(TextView member, TextView source);
[[noreturn]] void failArguments(TextView member, std::size_t taken, std::size_t given, TextView source);

}  // namespace automation
