// The standard streams and the terminal behind them.
#pragma once

#include <cstddef>
#include <string_view>

namespace os {

inline constexpr int kStandardOutput = 1;
inline constexpr int kStandardError = 2;

bool isTerminal(int file);

// The width of the terminal behind a file in columns; 80 if it is unknown or there is no terminal.
std::size_t terminalColumns(int file);

// The width of a character in columns: 0, 1 or 2. The locale's character set must be UTF-8.
std::size_t characterWidth(char32_t character);

// Writes a text. Returns 0, or the error number of the failed write.
int writeText(int file, std::string_view text) noexcept;

// Opens /dev/null for each standard stream that is closed, so that no other file gets its number. Writing to
// a replaced standard output fails.
void openStandardStreams();

}  // namespace os
