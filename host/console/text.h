// Phrases of messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

// "1 problem", "2 problems".
std::string pluralize(std::int64_t count, const char* one, const char* many);

// A number of problems on the standard output, coloured unless it is 0.
std::string countedProblems(std::int64_t count);

// "A", "A and B", "A, B and 3 more": at most `most` names; "none" if there are none.
std::string joinNames(const std::vector<std::string>& names, std::size_t most);

// A text as one word for a POSIX shell.
std::string shellQuoted(const std::string& text);

}  // namespace host
