#include "host/redact/replacements.h"

#include <algorithm>
#include <cctype>

#include "automation/text.h"

namespace host {
namespace {

constexpr std::size_t kLongWord = 64;  // bytes

bool occursBeforeDigit(std::string_view file, std::string_view word) {
  const auto equal = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
  for (auto at = file.begin();; ++at) {
    at = std::search(at, file.end(), word.begin(), word.end(), equal);
    if (at == file.end()) return false;
    const auto next = at + static_cast<std::ptrdiff_t>(word.size());
    if (next != file.end() && std::isdigit(static_cast<unsigned char>(*next)) != 0) return true;
  }
}

// The number of bytes at the beginning of an address that are kept.
std::size_t keptBytes(const Address& address) {
  if (address[0] == 0 || address[0] == 127 || address[0] >= 224) return address.size();
  if ((address[0] == 192 && address[1] == 168) || (address[0] == 169 && address[1] == 254)) return 2;
  return address[0] == 10 || (address[0] == 172 && address[1] / 16 == 1) ? 1 : 0;
}

}  // namespace

Replacements::Replacements(std::string_view file) {
  while (occursBeforeDigit(file, asciiWord_)) asciiWord_ += 'x';
  while (occursBeforeDigit(file, otherWord_)) otherWord_ += 'x';
}

std::pair<Replacements::Entry*, bool> Replacements::enter(std::string_view original) {
  const auto [entry, isNew] = replacements_.try_emplace(std::string(original));
  if (isNew) entries_.push_back(&*entry);
  return {&*entry, isNew};
}

std::string_view Replacements::word(std::string_view original) {
  const auto [entry, isNew] = enter(original);
  if (!isNew) return entry->second;
  const auto id = names_.enter(entry->first);
  const std::string_view first = names_.text(id);
  const bool isAscii = std::all_of(first.begin(), first.end(), [](char unit) { return (unit & 0x80) == 0; });
  entry->second = inCaseOf(original, isAscii ? asciiWord_ : otherWord_, id) + std::to_string(id + 1);
  if (original.size() > kLongWord) entry->second.resize(std::max(entry->second.size(), original.size()), 'x');
  return entry->second;
}

// Applies the case of the original: small, capital, first letter capital, or for other originals each time
// another mixture.
std::string Replacements::inCaseOf(std::string_view original, std::string replacement, std::uint32_t id) {
  const automation::Text text = automation::fromUtf8(original);
  const automation::Text lower = automation::lowerCase(text);
  std::size_t capitals = 0;
  std::size_t small = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != lower[at])
      ++capitals;
    else if (text[at] < u'0' || text[at] > u'9')
      ++small;
  }
  const auto isLetter = [](char unit) { return unit >= 'a' && unit <= 'z'; };
  const auto letters = static_cast<unsigned>(std::count_if(replacement.begin(), replacement.end(), isLetter));
  const unsigned all = (1U << std::min(letters, 16U)) - 1;
  unsigned mask = 0;
  if (capitals > 0 && small == 0) {
    mask = all;
  } else if (capitals == 1 && text[0] != lower[0]) {
    mask = 1;
  } else if (capitals > 0) {
    mixedCases_.resize(std::max<std::size_t>(mixedCases_.size(), id + 1));
    mask = 2 + mixedCases_[id]++ % (all - 2);
  }
  for (char& unit : replacement) {
    if (!isLetter(unit)) continue;
    if ((mask & 1) != 0) unit = static_cast<char>(unit - 0x20);
    mask >>= 1;
  }
  return replacement;
}

std::string_view Replacements::hexadecimal(std::string_view original) {
  const auto [entry, isNew] = enter(original);
  if (!isNew) return entry->second;
  std::size_t number = names_.enter(entry->first) + 1;
  entry->second.assign(original.size(), '0');
  for (auto digit = entry->second.rbegin(); digit != entry->second.rend(); ++digit, number /= 16) {
    *digit = "0123456789abcdef"[number % 16];
  }
  return entry->second;
}

Address Replacements::address(const Address& original) {
  Address replacement = original;
  for (std::size_t at = keptBytes(original); at + 1 < original.size(); ++at) {
    replacement[at] = addressByte(original, at);
  }
  if (replacement != original) {
    const auto [entry, isNew] = enter(addressText(original));
    if (isNew) entry->second = addressText(replacement);
  }
  return replacement;
}

std::uint8_t Replacements::addressByte(const Address& original, std::size_t at) {
  std::uint32_t key = static_cast<std::uint32_t>(at) + 1;
  for (std::size_t before = 0; before < at; ++before) key = key << 8 | original[before];
  Network& network = networks_[key];
  int& replacement = network.bytes[original[at]];
  for (int byte = 254; byte > 0 && replacement == 0; --byte) {
    Address candidate = original;
    candidate[at] = static_cast<std::uint8_t>(byte);
    const bool isMixed = at == 0 && (byte == 169 || byte == 172 || byte == 192);  // private only in part
    if (byte != original[at] && !isMixed && keptBytes(candidate) == keptBytes(original) &&
        !network.used[static_cast<std::size_t>(byte)]) {
      replacement = byte + 1;
    }
  }
  // Without a free one a byte stays.
  if (replacement == 0) replacement = original[at] + 1;
  network.used.set(static_cast<std::size_t>(replacement - 1));
  return static_cast<std::uint8_t>(replacement - 1);
}

std::string addressText(const Address& address) {
  std::string text;
  for (const std::uint8_t byte : address) text += (text.empty() ? "" : ".") + std::to_string(byte);
  return text;
}

}  // namespace host
