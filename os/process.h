// The process, its limits and its user.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace os {

// How many files the process may have open; nothing if there is no limit.
std::optional<std::size_t> openFileLimit();

// Makes the heap grow in large pages, which saves tens of thousands of page faults in a large collection. Has
// no effect where the system does not support it.
void useLargePages() noexcept;

// The name of the user that the process runs as, or the user's number.
std::string accountName();
// The name of this machine; empty if it is unknown.
std::string machineName();

}  // namespace os
