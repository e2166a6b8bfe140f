// Finds members of the store's objects by name.
#pragma once

#include <cstring>
#include <span>

#include "automation/failure.h"
#include "automation/object.h"
#include "automation/text.h"

namespace platform::store {

template <typename Member>
struct MemberName {
  automation::TextView name;
  Member member;
};

// Whether two names are equal, ignoring case. Fast if the case is the same too.
inline bool isNamed(automation::TextView left, automation::TextView right) {
  if (left.size() != right.size()) return false;
  return std::memcmp(left.data(), right.data(), left.size() * sizeof(char16_t)) == 0 ||
         automation::equalsIgnoringCase(left, right);
}

// The member with a name, ignoring case. Throws Failure 438 if there is none.
template <typename Member, std::size_t count>
Member findMember(const MemberName<Member> (&members)[count], automation::TextView name,
                  automation::TextView source) {
  for (const auto& entry : members) {
    if (isNamed(entry.name, name)) return entry.member;
  }
  automation::failMember(name, source);
}

}  // namespace platform::store
