// What redaction puts in the place of words and addresses.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/metabase/names.h"

namespace host {

using Address = std::array<std::uint8_t, 4>;

// Invents replacements, the same for the same original, and records them. The texts returned stay valid.
class Replacements {
 public:
  // No replacement of a word occurs in `file`.
  explicit Replacements(std::string_view file);

  // A word. Originals that are equal but for case have replacements that are equal but for case. Beyond ASCII
  // the replacement has such a character too, and a long word keeps its length.
  std::string_view word(std::string_view original);

  // Hexadecimal digits: as many others.
  std::string_view hexadecimal(std::string_view original);

  // An IPv4 address. Networks of 8, 16 and 24 bits stay networks, private ones private; the last byte is
  // kept. Masks and the addresses 0.*, 127.* and from 224 on are kept altogether.
  Address address(const Address& original);

  // The originals and their replacements, in the order of their first occurrence.
  using Entry = std::pair<const std::string, std::string>;
  const std::vector<const Entry*>& entries() const { return entries_; }

 private:
  // The replacements of one byte of the addresses that agree in the bytes before.
  struct Network {
    std::array<int, 256> bytes{};  // plus 1; 0 if there is none yet
    std::bitset<256> used;
  };

  // The entry of an original, and whether it is new.
  std::pair<Entry*, bool> enter(std::string_view original);
  std::string inCaseOf(std::string_view original, std::string replacement, std::uint32_t id);
  std::uint8_t addressByte(const Address& original, std::size_t at);

  std::string asciiWord_ = "word";
  std::string otherWord_ = "w\u00F6rd";
  std::unordered_map<std::string, std::string> replacements_;
  std::vector<const Entry*> entries_;
  platform::metabase::NameTable names_;
  std::vector<unsigned> mixedCases_;  // of each name: the originals so far with letters of both cases
  std::map<std::uint32_t, Network> networks_;
};

std::string addressText(const Address& address);

}  // namespace host
