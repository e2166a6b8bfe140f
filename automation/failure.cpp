#include "automation/failure.h"

#include <cstdio>
#include <utility>

#include "automation/variant.h"

namespace automation {

Failure::Failure(std::int32_t number, Text description, Text source)
    : number_(number), description_(std::move(description)), source_(std::move(source)) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%X", static_cast<unsigned>(number_));
  what_ = std::string(digits) + ": " + toUtf8(description_);
  if (!source_.empty()) what_ += " (" + toUtf8(source_) + ")";
}

const char* Failure::what() const noexcept {
  return what_.c_str();
}

void failOverflow() {
  throw Failure(number::kOverflow, u"Overflow");
}

void failSubscript() {
  throw Failure(number::kSubscriptOutOfRange, u"Subscript out of range");
}

void failTypeMismatch() {
  throw Failure(number::kTypeMismatch, u"Type mismatch");
}

void failObjectNotSet() {
  throw Failure(number::kObjectNotSet, u"Object variable not set");
}

void failNull() {
  throw Failure(number::kInvalidUseOfNull, u"Invalid use of Null");
}

void failMember(TextView member, TextView source) {
  throw Failure(number::kMemberNotSupported, u"Object does not support this member: " + Text(member),
                Text(source));
}

void failArguments(TextView member, std::size_t taken, std::size_t given, TextView source) {
  throw Failure(number::kWrongArguments,
                u"Wrong number of arguments: " + Text(member) + u" takes " + decimalText(taken) + u", " +
                    decimalText(given) + u" given",
                Text(source));
}

}  // namespace automation
