// Encodes binary IPSecurity values as input of the decoder.
#pragma once

#include <arpa/inet.h>

#include <cstdint>
#include <string>
#include <vector>

namespace test {

// Entries are "address, mask"; consecutive entries with the same mask form a group.
inline std::string encodeIpSecurity(const std::vector<std::string>& denials,
                                    const std::vector<std::string>& grants) {
  constexpr std::size_t kOffset = 0x80000000;
  const auto number = [](std::string& to, std::size_t value) {
    for (int shift = 0; shift < 32; shift += 8) to += static_cast<char>(value >> shift);
  };
  const auto raw = [](const std::string& address) {
    in_addr bytes{};
    ::inet_pton(AF_INET, address.c_str(), &bytes);
    return std::string(reinterpret_cast<const char*>(&bytes), sizeof bytes);
  };
  // The elements of each group of each list, starting with the mask.
  std::vector<std::vector<std::string>> lists(4);
  std::size_t groups = 0;
  for (std::size_t list = 0; list < 2; ++list) {
    std::string mask;
    for (const std::string& entry : list == 0 ? denials : grants) {
      const std::string own = raw(entry.substr(entry.find(',') + 2));
      if (lists[list].empty() || own != mask) lists[list].push_back(mask = own);
      lists[list].back() += raw(entry.substr(0, entry.find(',')));
    }
    groups += lists[list].size();
  }
  std::string header;
  std::string table;
  std::string elements;
  const std::size_t start = 24 + 4 * 8 + 20 * groups;
  for (const std::vector<std::string>& list : lists) {
    number(header, (24 + table.size()) | kOffset);
    std::size_t addresses = 0;
    for (const std::string& group : list) addresses += group.size() / 4 - 1;
    number(table, list.size());
    number(table, addresses);
    for (const std::string& group : list) {
      for (const std::size_t value : {std::size_t{2}, group.size() / 4, std::size_t{4}, std::size_t{0}}) {
        number(table, value);
      }
      number(table, (start + elements.size()) | kOffset);
      elements += group;
    }
  }
  number(header, 1);
  number(header, start);
  return header + table + elements;
}

}  // namespace test
