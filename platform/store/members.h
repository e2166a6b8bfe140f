// Members of the store's objects, found by name.
#pragma once

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

// The member of a name, compared without regard to case. Fails with 438 where the object has none.
template <typename Member, std::size_t count>
Member findMember(const MemberName<Member> (&members)[count], automation::TextView name,
                  automation::TextView source) {
  for (const auto& entry : members) {
    if (entry.name.size() == name.size() &&
        (entry.name == name || automation::equalsIgnoringCase(entry.name, name))) {
      return entry.member;
    }
  }
  automation::failMember(name, source);
}

// Fails with 450 where a member doesn't take that many arguments.
inline void requireArguments(automation::Arguments arguments, std::size_t count, automation::TextView member,
                             automation::TextView source) {
  if (arguments.size() == count) return;
  throw automation::Failure(automation::number::kWrongArguments,
                            u"Wrong number of arguments: " + automation::Text(member),
                            automation::Text(source));
}

}  // namespace platform::store
