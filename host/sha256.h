// SHA-256 (FIPS 180-4).
#pragma once

#include <string>
#include <string_view>

namespace host {

// The hash of some bytes: its 32 bytes, or the same in hexadecimal. Throws std::runtime_error where the
// library has none.
std::string sha256(std::string_view bytes);
std::string sha256Hex(std::string_view bytes);

}  // namespace host
