// The failure numbers of the metabase layer. Numbers of directory services and of the operating system have
// their usual meaning; numbers from 0x80040301 on, a range that automation reserves for an object's own
// errors, are for defects of a metabase file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "automation/failure.h"
#include "automation/text.h"

namespace platform::metabase {

namespace number {
// The file itself.
constexpr std::int32_t kFileNotFound = static_cast<std::int32_t>(0x80070002);
constexpr std::int32_t kFileUnreadable = static_cast<std::int32_t>(0x80070005);
constexpr std::int32_t kFileReadFault = static_cast<std::int32_t>(0x8007001E);
constexpr std::int32_t kFileEmpty = static_cast<std::int32_t>(0x80070026);
constexpr std::int32_t kFileTooLarge = static_cast<std::int32_t>(0x800700DF);
constexpr std::int32_t kFileChanged = static_cast<std::int32_t>(0x800703EE);
constexpr std::int32_t kFileIsDirectory = static_cast<std::int32_t>(0x8007010B);

// The content of the file.
constexpr std::int32_t kNotXml = static_cast<std::int32_t>(0x80040301);
constexpr std::int32_t kCutOff = static_cast<std::int32_t>(0x80040302);
constexpr std::int32_t kAnotherKind = static_cast<std::int32_t>(0x80040303);
constexpr std::int32_t kDocumentType = static_cast<std::int32_t>(0x80040304);
constexpr std::int32_t kEntity = static_cast<std::int32_t>(0x80040305);
constexpr std::int32_t kEncoding = static_cast<std::int32_t>(0x80040306);
constexpr std::int32_t kDuplicateProperty = static_cast<std::int32_t>(0x80040307);
constexpr std::int32_t kDuplicatePath = static_cast<std::int32_t>(0x80040308);
constexpr std::int32_t kBadLocation = static_cast<std::int32_t>(0x80040309);
constexpr std::int32_t kBadElement = static_cast<std::int32_t>(0x8004030A);

// Reading a property.
constexpr std::int32_t kPathNotFound = static_cast<std::int32_t>(0x80070003);
constexpr std::int32_t kPropertyUnknown = static_cast<std::int32_t>(0x80005006);
constexpr std::int32_t kNotOfClass = static_cast<std::int32_t>(0x8000500D);
constexpr std::int32_t kWrongValue = static_cast<std::int32_t>(0x8000500C);
constexpr std::int32_t kBinaryIpSecurity = static_cast<std::int32_t>(0x8004030B);
constexpr std::int32_t kSecured = static_cast<std::int32_t>(0x80070005);
constexpr std::int32_t kReadOnly = static_cast<std::int32_t>(0x80070013);
constexpr std::int32_t kUnknownServer = static_cast<std::int32_t>(0x800706BA);
}  // namespace number

// The source of every failure of this layer.
inline constexpr automation::TextView kSource = u"Metabase";

// Throws a failure of this layer. The description is one line of UTF-8 without a full stop.
[[noreturn]] inline void fail(std::int32_t failureNumber, std::string_view description) {
  throw automation::Failure(failureNumber, automation::fromUtf8(description), automation::Text(kSource));
}

// Replaces control characters by spaces.
std::string toSingleLine(std::string_view text);

// Quotes text from a file for a message: a single line of at most 80 bytes.
std::string quoteForMessage(std::string_view text);

}  // namespace platform::metabase
